// Every input of every fuzz target's corpus, run through the target once: the inputs that found
// faults stay fixed, and the seeds keep the targets' checks honest without a fuzzing compiler.
#include "fuzz/FuzzTargets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace vorlo::fuzz {
namespace {

namespace stdfs = std::filesystem;

std::vector<stdfs::path> corpusFiles(std::string_view target) {
    const stdfs::path folder = stdfs::path(VORLO_SOURCE_DIR) / "tests" / "fuzz" / "corpus" / std::string(target);
    std::vector<stdfs::path> files;
    for (const auto& entry : stdfs::directory_iterator(folder))
        if (entry.is_regular_file()) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

class CorpusReplay : public ::testing::TestWithParam<FuzzTarget> {};

TEST_P(CorpusReplay, EveryInputKeepsEveryProperty) {
    const auto files = corpusFiles(GetParam().name);
    EXPECT_GE(files.size(), 5u) << "the seed corpus of " << GetParam().name << " went missing";
    for (const auto& file : files) {
        std::ifstream in(file, std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
        try {
            GetParam().run(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
        } catch (const FuzzFailure& failure) {
            ADD_FAILURE() << file.filename() << ": " << failure.what();
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Fuzz, CorpusReplay, ::testing::ValuesIn(kFuzzTargets),
                         [](const auto& info) { return std::string(info.param.name); });

} // namespace
} // namespace vorlo::fuzz
