#include <nlohmann/json.hpp>

#include "ledger_schema.h"
#include "running_camera.h"

/* What people choose for a camera's ledger when they start it. */

namespace {

int64_t occupancyOf(const RunningCamera& camera) {
    const HttpAnswer answer = camera.access().ask("get_occupancy_count");
    return answer.status == 200 ? std::atoll(answer.body.c_str()) : -1;
}

TEST(LedgerOptions, KeepTheOccupancyOverAKill) {
    const TestFolder folder;
    RunningCamera camera(folder.path(), "127.0.0.1", {"--keep-occupancy"});
    ASSERT_TRUE(eventually([&] {
        return camera.access().ask("correct_occupancy&to=1000&remark=by%20hand", {"--data", ""}).status == 200;
    }));
    // The visitors of the drawn scene come and go, a few at a time.
    ASSERT_TRUE(eventually([&] { return occupancyOf(camera) > 900; }));
    ASSERT_TRUE(killApplicationOf(camera.state()));
    ASSERT_TRUE(eventually([&] {
        return camera.access().ask("occupancy_before").body.find("\"ended\":\"killed\"") != std::string::npos;
    }));
    EXPECT_GT(occupancyOf(camera), 900);
    EXPECT_EQ(camera.stop(), 0);
}

TEST(LedgerOptions, BoundTheLedger) {
    const TestFolder folder;
    RunningCamera camera(folder.path(), "127.0.0.1", {"--ledger-size", "1"});
    const auto ledgerBytes = [&] {
        uintmax_t bytes = 0;
        for (const auto& entry : std::filesystem::directory_iterator(camera.application() / "localdata/ledger")) {
            std::error_code gone;
            const uintmax_t size = std::filesystem::file_size(entry.path(), gone);
            bytes += gone ? 0 : size;
        }
        return bytes;
    };
    nlohmann::json count = {
        {"begin", "2026-11-22T09:00:00.000Z"}, {"end", "2026-11-22T09:10:00.000Z"}, {"taps", nlohmann::json::array()}};
    for (int tap = 0; tap < 3'000; ++tap) {
        count["taps"].push_back({{"t", "2026-11-22T09:00:07.100Z"}, {"entrance", 1}, {"direction", "in"}});
    }
    writeFile(folder.path() / "count.json", count.dump());
    const std::string posted = "@" + (folder.path() / "count.json").string();
    ASSERT_TRUE(eventually([&] { return camera.access().ask("get_status_code").status == 200; }));
    constexpr int kCounts = 16;
    for (int i = 0; i < kCounts; ++i) {
        ASSERT_TRUE(eventually([&] {
            return camera.access().ask("hand_count", {"--data-binary", posted}).status == 200;
        }));
    }
    EXPECT_GT(kCounts * count.dump().size(), size_t{2} << 20U) << "more than there is room for";
    EXPECT_TRUE(eventually([&] { return ledgerBytes() <= size_t{1} << 20U; })) << ledgerBytes();
    const std::string cuts = camera.access().ask("get_ledger&kinds=cut").body;
    EXPECT_NE(cuts.find("\"removed\":\"all\""), std::string::npos);
    EXPECT_EQ(schemaFaults(cuts), "");
    EXPECT_EQ(camera.stop(), 0);
}

}  // namespace
