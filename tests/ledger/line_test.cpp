#include "ledger/line.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace ledger {
namespace {

TEST(LedgerLine, BeginsWithItsHead) {
    const std::string text =
        lineText({17, "5f0c", {1'795'305'600'123, "", 0}, "crossing"}, bodyText({{"entrance", 1}}));
    EXPECT_EQ(text, R"({"seq":17,"epoch":"5f0c","t":"2026-11-22T00:00:00.123Z","kind":"crossing","entrance":1})"
                    "\n");
    EXPECT_EQ(lineText({1, "e", {0, "b", 5}, "start"}, ""),
              R"({"seq":1,"epoch":"e","boot":"b","mono":5,"kind":"start"})"
              "\n");
}

TEST(LedgerLine, ReadsItsHeadBack) {
    for (const LineHead& head :
         {LineHead{17, "5f0c", {1'795'305'600'123, "", 0}, "crossing"}, LineHead{1, "e", {0, "b", 5}, "start"}}) {
        std::string text = lineText(head, bodyText({{"a", "b"}}));
        text.pop_back();
        const std::optional<LineHead> read = headOf(text);
        ASSERT_TRUE(read) << text;
        EXPECT_EQ(read->seq, head.seq);
        EXPECT_EQ(read->epoch, head.epoch);
        EXPECT_EQ(read->kind, head.kind);
        EXPECT_EQ(read->moment.boot, head.moment.boot);
        EXPECT_EQ(read->moment.isDated() ? read->moment.utcMillis : read->moment.monoMillis,
                  head.moment.isDated() ? head.moment.utcMillis : head.moment.monoMillis);
        EXPECT_TRUE(parseLine(text).is_object());
    }
}

TEST(LedgerLine, RefusesWhatIsNone) {
    const char* const none[] = {
        "",
        "{}",
        R"({"seq":0,"epoch":"e","t":"2026-11-22T00:00:00.000Z","kind":"x"})",
        R"({"seq":1,"epoch":"e","t":"2026-11-22 00:00:00.000Z","kind":"x"})",
        R"({"seq":1,"epoch":"e","t":"2026-06-31T00:00:00.000Z","kind":"x"})",
        R"({"seq":1,"epoch":"e","t":"2026-11-22T24:00:00.000Z","kind":"x"})",
        R"({"seq":1,"epoch":"e","boot":"","mono":1,"kind":"x"})",
        R"({"seq":1,"epoch":"e","t":"2026-11-22T00:00:00.000Z","kind":"x")",
        R"({"seq":99999999999999999999,"epoch":"e","t":"2026-11-22T00:00:00.000Z","kind":"x"})"};
    for (const char* const line : none) {
        EXPECT_FALSE(headOf(line)) << line;
        EXPECT_TRUE(parseLine(line).is_discarded()) << line;
    }
}

TEST(LedgerLine, SurvivesTextsThatAreNoUtf8) {
    const std::string text = lineText({1, "e", {}, "corrected"}, bodyText({{"remark", "a\xff\"\n"}}));
    EXPECT_EQ(parseLine(std::string_view(text).substr(0, text.size() - 1))["remark"], "a\xEF\xBF\xBD\"\n");
}

TEST(LedgerLine, TellsUtc) {
    EXPECT_EQ(utcText(0), "1970-01-01T00:00:00.000Z");
    EXPECT_EQ(utcText(-1), "1969-12-31T23:59:59.999Z");
    EXPECT_EQ(utcText(951'782'400'000), "2000-02-29T00:00:00.000Z");
    EXPECT_EQ(utcOf("2000-02-29T00:00:00.000Z"), 951'782'400'000);
    EXPECT_EQ(utcOf("2001-02-29T00:00:00.000Z"), std::nullopt);
    EXPECT_EQ(utcDay(951'782'399'999), "2000-02-28");
}

TEST(LedgerLine, OfADamagedOneTheRestIsRead) {
    const nlohmann::json line = nlohmann::json::parse(
        R"({"text":7,"number":"7","huge":9223372036854775807,"fraction":1.5,"good":"x","seven":7,"none":null})");
    EXPECT_EQ(textIn(line, "text"), "");
    EXPECT_EQ(textIn(line, "missing"), "");
    EXPECT_EQ(textIn(line, "good"), "x");
    for (const char* const member : {"number", "huge", "fraction", "none", "missing"}) {
        EXPECT_EQ(numberIn(line, member), 0) << member;
    }
    EXPECT_EQ(numberIn(line, "seven"), 7);
    EXPECT_FALSE(headOf(R"({"seq":9223372036854775807,"epoch":"e","t":"2026-11-22T08:00:00.000Z","kind":"reset"})"));
}

}  // namespace
}  // namespace ledger
