// How the fuzz targets are driven. Compiled with VORLO_FUZZ_TARGET (a target's function name), this
// is libFuzzer's entry for that target. Without it, it is the test binary's replay of every input of
// every target's corpus: the inputs that found faults stay fixed, and the seeds keep the targets'
// checks honest without a fuzzing compiler.
#include "fuzz/FuzzTargets.h"

#ifdef VORLO_FUZZ_TARGET
#include "platform/Collation.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    vorlo::text::adoptLocaleFromEnvironment();
    return 0;
}

// A broken property escapes as FuzzFailure: the runtime's handler prints its what() and aborts, and
// libFuzzer keeps the input as a finding.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return vorlo::fuzz::VORLO_FUZZ_TARGET(data, size);
}
#else
#include "support/TempLibrary.h"

#include <gtest/gtest.h>

#include <set>

namespace vorlo::fuzz {
namespace {

// A target's name is the folder of its corpus under tests/fuzz/corpus.
using Target = std::pair<std::string_view, FuzzFunction*>;
class CorpusReplay : public ::testing::TestWithParam<Target> {};

TEST_P(CorpusReplay, EveryInputKeepsEveryProperty) {
    const auto& [name, run] = GetParam();
    using Listing = std::filesystem::directory_iterator; // in order, for the line handler's library
    const std::set files(Listing(VORLO_SOURCE_DIR "/tests/fuzz/corpus/" + std::string(name)), Listing());
    EXPECT_GE(files.size(), 5u) << "the seed corpus of " << name << " went missing";
    for (const auto& file : files) {
        const std::string bytes = testing::readFile(file.path());
        try {
            run(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
        } catch (const FuzzFailure& failure) {
            ADD_FAILURE() << file.path().filename() << ": " << failure.what();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Fuzz, CorpusReplay,
                         ::testing::Values(Target{"line_handler", fuzzLineHandler},
                                           Target{"paths", fuzzPaths}, Target{"note_parser", fuzzNoteParser},
                                           Target{"json_string", fuzzJsonString},
                                           Target{"render_parse", fuzzRenderParse}),
                         [](const auto& info) { return std::string(info.param.first); });

} // namespace
} // namespace vorlo::fuzz
#endif
