#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>

#include "running_application.h"

namespace {

using PurgeDeathTest = RunningApplication;

/** The cycle in which a purge is due goes on; what the purge throws ends the process in a later one. */
TEST_F(PurgeDeathTest, ThrowsOutOfALaterCycleThanItsOwn) {
    std::ofstream(m_log.folder() / "usr/local/packages/ostrel_senvo/localdata/CrowdCountTidy.csv") << "d,Cam,0,0,x\n";
    const std::filesystem::path finished = m_log.folder() / "finished";
    bool isDue = false;
    scripted::onJob([&](const std::vector<uint8_t>&) {
        if (!isDue) {
            isDue = true;
            m_clock.advance(31 * 86400);
        }
        return std::vector<scripted::Candidate>();
    });
    scripted::parameters()["MainLoopTime"] = "1";
    m_application.onCycle([&] { std::ofstream(finished) << "the flush's cycle\n"; });
    EXPECT_EXIT(m_application.main(), testing::ExitedWithCode(1), "");
    EXPECT_TRUE(std::filesystem::exists(finished));
    EXPECT_EQ(LogCapture::ofLevel("error"), std::vector<std::string>{"grateful_dead: thread_function: stoi"});
}

}  // namespace
