#include <gtest/gtest.h>
#include <random>

#include "failing_power.h"
#include "ledger_machine.h"
#include "slow_build.h"

namespace ledger {
namespace {

TEST(LedgerPowerCut, LosesNothingThatWasSafe) {
    constexpr int kCuts = kSlow ? 1'000 : 10'000;
    FailingPower disk(7);
    constexpr int64_t kMost = 4'000;
    Machine machine(disk, kMost);
    std::mt19937 random(11);
    for (int cut = 0; cut < kCuts; ++cut) {
        for (auto step = random() % 30; step > 0; --step) {
            switch (random() % 8) {
                case 0:
                    machine.now.utcMillis += kDay;
                    break;
                case 1:
                    machine.ledger().keep();
                    break;
                case 2:
                    disk.setFull(random() % 4 == 0);
                    break;
                default:
                    machine.add(random() % 2 == 0 ? "object" : "crossing");
            }
        }
        disk.setFull(false);
        const int64_t safeSeq = machine.ledger().safeSeq();
        const std::map<int64_t, std::string> before = textsOf(machine.ledger());
        disk.cutPower();
        machine.start();
        ASSERT_GE(machine.ledger().end().seq, safeSeq) << "cut " << cut;
        const std::map<int64_t, std::string> after = textsOf(machine.ledger());
        ASSERT_EQ(unexplainedGaps(after), "") << "cut " << cut;
        for (const auto& [seq, text] : after) {
            const auto at = before.find(seq);
            ASSERT_TRUE(at == before.end() || at->second == text) << "cut " << cut << ": " << text;
        }
    }
}

}  // namespace
}  // namespace ledger
