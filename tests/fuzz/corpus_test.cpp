#include <gtest/gtest.h>

#include "entries.h"
#include "program.h"
#include "slow_build.h"
#include "this_build.h"

namespace {

void expectNoViolation(const fuzz::Entry& entry, const std::string& text, const std::string& label) {
    try {
        entry.run(text);
    } catch (const fuzz::Violation& violation) {
        ADD_FAILURE() << entry.name << ", " << label << ": " << violation.what();
    }
}

class Corpus : public testing::TestWithParam<fuzz::Entry> {};

TEST_P(Corpus, HoldsNothingThatBreaksAnEntry) {
    int files = 0;
    const std::filesystem::path folder = this_build::checkout() / "tests/fuzz/corpus" / GetParam().name;
    for (const auto& file : std::filesystem::directory_iterator(folder)) {
        expectNoViolation(GetParam(), readFile(file.path()), file.path().filename());
        ++files;
    }
    EXPECT_GT(files, 5) << folder;
}

TEST_P(Corpus, IsFollowedByLinesOfTenMegabytes) {
    if (kSanitized) {
        GTEST_SKIP() << "takes minutes under a sanitizer";
    }
    const std::string ten(10'000'000, 'x');
    expectNoViolation(GetParam(), ten, "no end");
    expectNoViolation(GetParam(), ten + "\n", "with an end");
    expectNoViolation(GetParam(), "d,c,0,0,1\n" + ten + "\nd,c,0,0,2\n", "between two");
    expectNoViolation(GetParam(), "d," + ten + ",0,0,1\n", "a name");
    expectNoViolation(GetParam(), "d,c,0,0," + std::string(10'000'000, '0') + "1\n", "a number");
    expectNoViolation(GetParam(), std::string(1'000'000, ','), "commas");
    expectNoViolation(GetParam(), "1\n" + ten + "\n0\n0\n0\n", "a record");
    expectNoViolation(GetParam(), "d|a|l|" + ten, "a message");
}

INSTANTIATE_TEST_SUITE_P(Entries, Corpus, testing::ValuesIn(fuzz::kEntries),
                         [](const auto& instance) { return std::string(instance.param.name); });

}  // namespace
