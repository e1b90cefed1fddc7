// Every input of every fuzz target's corpus, run through the target once: the inputs that found
// faults stay fixed, and the seeds keep the targets' checks honest without a fuzzing compiler.
#include "fuzz/FuzzTargets.h"
#include "support/TempLibrary.h"

#include <gtest/gtest.h>

#include <set>

namespace vorlo::fuzz {
namespace {

class CorpusReplay : public ::testing::TestWithParam<FuzzTarget> {};

TEST_P(CorpusReplay, EveryInputKeepsEveryProperty) {
    namespace stdfs = std::filesystem;
    const std::set files(
        stdfs::directory_iterator(VORLO_SOURCE_DIR "/tests/fuzz/corpus/" + std::string(GetParam().name)),
        stdfs::directory_iterator()); // in order, for the line handler's library
    EXPECT_GE(files.size(), 5u) << "the seed corpus of " << GetParam().name << " went missing";
    for (const auto& file : files) {
        const std::string bytes = testing::readFile(file.path());
        try {
            GetParam().run(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
        } catch (const FuzzFailure& failure) {
            ADD_FAILURE() << file.path().filename() << ": " << failure.what();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Fuzz, CorpusReplay, ::testing::ValuesIn(kFuzzTargets),
                         [](const auto& info) { return std::string(info.param.name); });

} // namespace
} // namespace vorlo::fuzz
