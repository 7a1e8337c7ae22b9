#include "fleet/batch.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace {

std::string line(int64_t seq, const std::string& epoch = "a", const std::string& more = "") {
    return R"({"seq":)" + std::to_string(seq) + R"(,"epoch":")" + epoch +
           R"(","t":"2026-11-22T05:35:01.420Z","kind":"watched")" + more + "}\n";
}

constexpr const char* kHeader = "{\"epoch\":\"a\",\"after\":4}\n";

TEST(Batch, HasItsLinesAndWhatTheyFollow) {
    const fleet::Batch batch = fleet::readBatch("site/gate/ledger", kHeader + line(5) + line(7));
    EXPECT_EQ(batch.prefix, "site/gate");
    EXPECT_EQ(batch.epoch, "a");
    EXPECT_EQ(batch.after, 4);
    EXPECT_EQ(batch.through, 7);
    EXPECT_TRUE(batch.isInOrder);
    ASSERT_EQ(batch.lines.size(), 2U);
    EXPECT_EQ(batch.lines[1].text + "\n", line(7));
    EXPECT_FALSE(fleet::readBatch("gate/recent", kHeader + line(5)).isInOrder);
}

struct RefusedCase {
    const char* label;
    std::string payload;
    const char* expected;
};

class RefusedBatch : public testing::TestWithParam<RefusedCase> {};

TEST_P(RefusedBatch, IsToldOf) {
    std::string got = "nothing";
    try {
        fleet::readBatch("gate/ledger", GetParam().payload);
    } catch (const std::runtime_error& error) {
        got = error.what();
    }
    EXPECT_TRUE(got.starts_with(GetParam().expected)) << got;
}

INSTANTIATE_TEST_SUITE_P(
    Payloads, RefusedBatch,
    testing::Values(
        RefusedCase{"Empty", "", "expected lines, got none"}, RefusedCase{"HeaderAlone", kHeader, "expected lines"},
        RefusedCase{"Garbage", "\xff\xfegarbage\n", R"(expected {"epoch":TEXT,"after":NUMBER} first, got ")"},
        RefusedCase{"NoHeader", line(5), R"(expected {"epoch":TEXT,"after":NUMBER} first, got)"},
        RefusedCase{"NegativeHeader", "{\"epoch\":\"a\",\"after\":-1}\n" + line(5), "expected {"},
        RefusedCase{"NoLine", std::string(kHeader) + "{}\n", R"(expected a line of the ledger, got "{}")"},
        RefusedCase{"NoEnd", kHeader + line(5).substr(0, 20), "expected each line to have its end, got"},
        RefusedCase{"AnotherEpoch", kHeader + line(5, "b"), R"(expected a line of epoch "a" behind 4, got)"},
        RefusedCase{"Backwards", kHeader + line(6) + line(5), R"(expected a line of epoch "a" behind 6, got)"},
        RefusedCase{"BeforeItsHeader", kHeader + line(4), R"(expected a line of epoch "a" behind 4, got)"},
        RefusedCase{"GiantLine", kHeader + line(5, "a", ",\"x\":\"" + std::string(1 << 20, 'x') + "\""),
                    "expected lines of less than 1 MiB, got one of "},
        RefusedCase{"Giant", std::string(10 << 20, 'x'), "expected at most 2097152 bytes, got 10485760"}),
    [](const auto& instance) { return instance.param.label; });

}  // namespace
