#include "library/MimeTypes.h"

#include <gtest/gtest.h>

namespace vorlo::library {
namespace {

TEST(MimeTypes, LooksUpExtensionsInAnyCase) {
    const struct {
        const char* extension;
        const char* type;
    } cases[] = {
        {"png", "image/png"},
        {"JPG", "image/jpeg"},
        {"Jpeg", "image/jpeg"},
        {"svg", "image/svg+xml"},
        {"TIF", "image/tiff"},
        {"log", "text/plain"},
        {"md", "text/markdown"},
        {"markdown", "text/markdown"},
        {"js", "text/javascript"},
        {"json", "application/json"},
        {"yml", "application/yaml"},
        {"mov", "video/quicktime"},
        {"PDF", "application/pdf"},
        {"xlsx", "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"},
        // The whole extension must match; a longer or shorter one is unknown.
        {"", "application/octet-stream"},
        {"pngx", "application/octet-stream"},
        {"tar.gz", "application/octet-stream"},
        {"ﬁle", "application/octet-stream"},
        // The Kelvin sign lower-cases to an ASCII "k".
        {"MAR\u212ADOWN", "text/markdown"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(mimeType(c.extension), c.type) << c.extension;
}

} // namespace
} // namespace vorlo::library
