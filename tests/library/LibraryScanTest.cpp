#include "library/LibraryScan.h"

#include "platform/Errors.h"
#include "support/TempLibrary.h"

#include <gtest/gtest.h>

namespace vorlo::testing {
namespace {

// What the walk admits, its order and the revisions are held against generated libraries in
// NoteLookupTest and StreamedScanTest. A library that is missing, a file or a link is refused whole:
// the walk never starts through a link.
TEST(LibraryScan, LibraryThatCannotBeOpenedFailsTheScan) {
    TempLibrary library;
    library.write("Elsewhere/a.md", "x");
    library.link("Linked", library.path("Elsewhere"));
    for (const std::string& root :
         {library.path("Missing"), library.path("Elsewhere/a.md"), library.path("Linked")}) {
        try {
            VorloMCPServer(root, library.preferences()).scanNotes();
            ADD_FAILURE() << root;
        } catch (const ServerError& error) {
            EXPECT_STREQ(error.what(), "The selected Vorlo library could not be read.");
        }
    }
}

} // namespace
} // namespace vorlo::testing
