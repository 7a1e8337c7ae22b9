#include "desktop/mqtt/line_files.h"

#include <gtest/gtest.h>

#include "line_folder.h"

namespace {

constexpr int64_t kPlenty = 1 << 20;

/** What is given until nothing more comes: "epoch after: numbers;" for each run. */
std::string all(desktop::LineFiles& files, int64_t most = kPlenty) {
    std::string text;
    for (desktop::LineRun run = files.next(most); !run.lines.empty(); run = files.next(most)) {
        text += run.lines.front().epoch + " " + std::to_string(run.after) + ":";
        for (const desktop::FiledLine& line : run.lines) {
            text += " " + std::to_string(line.seq);
        }
        text += ";";
    }
    return text;
}

struct SeekCase {
    const char* label;
    desktop::LinePosition position;
    const char* expected;
};

class LineFilesSeek : public testing::TestWithParam<SeekCase> {};

TEST_P(LineFilesSeek, GoesOnBehindThePosition) {
    const LineFolder folder;
    folder.append(3, LineFolder::lines(3, 5));
    folder.append(6, LineFolder::line(6) + LineFolder::line(8) + LineFolder::lines(9, 10, "b"));
    folder.append(11, LineFolder::line(11, "b"));
    desktop::LineFiles files(folder.path());
    files.seek(GetParam().position);
    EXPECT_EQ(all(files), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Positions, LineFilesSeek,
                         testing::Values(SeekCase{"Beginning", {}, "a 0: 3 4 5 6 8;b 0: 9 10 11;"},
                                         SeekCase{"Between", {"a", 4}, "a 4: 5 6 8;b 0: 9 10 11;"},
                                         SeekCase{"EndOfAFile", {"a", 5}, "a 5: 6 8;b 0: 9 10 11;"},
                                         SeekCase{"LineThatIsGone", {"a", 7}, "a 7: 8;b 0: 9 10 11;"},
                                         SeekCase{"BeforeTheFirst", {"a", 1}, "a 1: 3 4 5 6 8;b 0: 9 10 11;"},
                                         SeekCase{"EndOfAnEpoch", {"a", 8}, "b 0: 9 10 11;"},
                                         SeekCase{"NextEpoch", {"b", 9}, "b 9: 10 11;"}, SeekCase{"End", {"b", 11}, ""},
                                         SeekCase{"AnotherLedger", {"z", 9}, "a 0: 3 4 5 6 8;b 0: 9 10 11;"},
                                         SeekCase{"AnotherLedgersEnd", {"z", 900}, "a 0: 3 4 5 6 8;b 0: 9 10 11;"}),
                         [](const auto& instance) { return instance.param.label; });

TEST(LineFiles, GivesWhatIsAppendedOnceItHasItsEnd) {
    const LineFolder folder;
    desktop::LineFiles files(folder.path());
    EXPECT_EQ(all(files), "") << "no file yet";
    folder.append(1, LineFolder::line(1) + R"({"seq":2,"epo)");
    EXPECT_EQ(all(files), "a 0: 1;");
    folder.append(1, "ch\":\"a\"}\n");
    EXPECT_EQ(all(files), "a 1: 2;");
    folder.append(1, LineFolder::line(3));
    folder.append(4, LineFolder::line(4));
    EXPECT_EQ(all(files), "a 2: 3 4;") << "the rest of a file comes before the next";
}

TEST(LineFiles, PassesOverWhatIsNoLine) {
    const LineFolder folder;
    folder.append(1, LineFolder::line(1) + "garbage\n[]\n{\"seq\":\"2\",\"epoch\":\"a\"}\n{\"seq\":2}\n" +
                         std::string(3 << 20, 'x') + "\n" + LineFolder::line(3));
    folder.append(4, LineFolder::line(4), ".ndjson.young");
    folder.append(4, LineFolder::line(4), ".index");
    desktop::LineFiles files(folder.path());
    EXPECT_EQ(all(files), "a 0: 1 3;");
    std::filesystem::rename(folder.file(4, ".ndjson.young"), folder.file(4));
    EXPECT_EQ(all(files), "a 3: 4;");
}

TEST(LineFiles, GoesOnInAFileThatWasRewrittenOrRemoved) {
    const LineFolder folder;
    folder.append(1, LineFolder::lines(1, 9));
    folder.append(10, LineFolder::lines(10, 12));
    desktop::LineFiles files(folder.path());
    const int64_t four = static_cast<int64_t>(LineFolder::lines(1, 4).size());
    EXPECT_EQ(files.next(four).lines.size(), 4U);
    folder.rewrite(1, LineFolder::lines(3, 9));
    const desktop::LineRun fifth = files.next(20);
    ASSERT_EQ(fifth.lines.size(), 1U);
    EXPECT_EQ(fifth.lines.front().seq, 5) << "what is left is longer than what was read";
    folder.rewrite(1, LineFolder::line(2) + LineFolder::line(6) + LineFolder::line(9));
    EXPECT_EQ(files.next(20).lines.front().seq, 6);
    std::filesystem::remove(folder.file(1));
    EXPECT_EQ(all(files), "a 6: 10 11 12;");
    std::filesystem::remove(folder.file(10));
    EXPECT_EQ(all(files), "");
    folder.append(1, LineFolder::lines(1, 2, "b"));
    EXPECT_EQ(all(files), "b 0: 1 2;") << "another ledger in the same folder";
}

TEST(LineFiles, GivesNoMoreThanIsAskedForButAlwaysOne) {
    const LineFolder folder;
    const std::string big = LineFolder::line(2, "a", R"(,"more":")" + std::string(500000, 'x') + "\"");
    folder.append(1, LineFolder::line(1) + big + LineFolder::lines(3, 4));
    desktop::LineFiles files(folder.path());
    EXPECT_EQ(all(files, 50), "a 0: 1;a 1: 2;a 2: 3 4;");
}

TEST(LineFiles, GivesTheNewestAlone) {
    const LineFolder folder;
    folder.append(1, LineFolder::lines(1, 5));
    folder.append(6, LineFolder::lines(6, 9));
    desktop::LineFiles files(folder.path());
    files.seekNewest(static_cast<int64_t>(LineFolder::lines(8, 9).size()) + 5);
    EXPECT_EQ(all(files), "a 7: 8 9;");
}

}  // namespace
