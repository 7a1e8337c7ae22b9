#include "supervisor.h"

#include <csignal>
#include <gtest/gtest.h>

#include "program.h"
#include "test_folder.h"

namespace {

using Lines = std::vector<std::string>;

const std::string kRestart = "the application ended with status 1; starting it again";

class Supervisor : public testing::Test {
protected:
    /** Supervises the program; when it says the line given, SIGTERM comes. */
    int run(const std::string& behaviour, const std::string& stopAt = "",
            std::optional<std::chrono::seconds> duration = std::nullopt) {
        desktop::SupervisedProcess process;
        process.executable = m_executable;
        process.workingFolder = m_folder.path();
        process.environment = {{"BEHAVIOUR", behaviour}};
        return desktop::supervise(process, duration, [&](const std::string& line) {
            m_said.push_back(line);
            if (line == stopAt) {
                kill(getpid(), SIGTERM);
            }
        });
    }

    int starts() const {
        const std::string text = readFile(m_folder.path() / "starts");
        return static_cast<int>(std::count(text.begin(), text.end(), '\n'));
    }

    TestFolder m_folder;
    std::filesystem::path m_executable = SUPERVISED_PROGRAM;
    Lines m_said;
};

TEST_F(Supervisor, EndsWithAProcessThatEndsWithoutAnError) {
    EXPECT_EQ(run("ok"), 0);
    EXPECT_EQ(starts(), 1);
    EXPECT_EQ(m_said, Lines{});
}

TEST_F(Supervisor, StartsAgainAfterAnError) {
    EXPECT_EQ(run("error killed ok"), 0);
    EXPECT_EQ(starts(), 3);
    EXPECT_EQ(m_said, (Lines{kRestart, "the application killed by signal Killed; starting it again"}));
}

TEST_F(Supervisor, WaitsAfterFiveEndsInARow) {
    EXPECT_EQ(run("error", kRestart + " in 10 s"), 0) << "asked to stop while it waits";
    EXPECT_EQ(starts(), 6);
    EXPECT_EQ(m_said, (Lines{kRestart, kRestart, kRestart, kRestart, kRestart, kRestart + " in 10 s"}));
}

TEST_F(Supervisor, HandsSigtermOn) {
    EXPECT_EQ(run("wait"), 0);
    EXPECT_EQ(readFile(m_folder.path() / "asked"), "Terminated\n");
    EXPECT_EQ(starts(), 1) << "asked to end, it is not started again";
    EXPECT_EQ(m_said, Lines{});
}

TEST_F(Supervisor, KillsAProcessThatDoesNotEnd) {
    EXPECT_EQ(run("stubborn"), 0);
    EXPECT_EQ(m_said, (Lines{"the application does not end; killing it"}));
    const pid_t pid = std::stoi(readFile(m_folder.path() / "starts"));
    EXPECT_EQ(kill(pid, 0), -1) << "it is gone";
}

TEST_F(Supervisor, EndsWhenTheTimeIsOver) {
    EXPECT_EQ(run("wait", "", std::chrono::seconds(0)), 0);
    EXPECT_EQ(m_said, Lines{});
    EXPECT_EQ(readFile(m_folder.path() / "asked"), "Terminated\n");
}

TEST_F(Supervisor, EndsWhenTheTimeIsOverWhileItWaits) {
    EXPECT_EQ(run("error", "", std::chrono::seconds(2)), 0);
    EXPECT_EQ(starts(), 6) << "the seventh start would come ten seconds later";
}

TEST_F(Supervisor, TellsWhatItCannotExecute) {
    m_executable = m_folder.path() / "missing";
    EXPECT_EQ(run(""), 1);
    EXPECT_EQ(m_said, (Lines{"cannot execute " + m_executable.string() + " in " + m_folder.path().string()}));
}

TEST_F(Supervisor, TellsWhatItCannotEnter) {
    desktop::SupervisedProcess process;
    process.executable = m_executable;
    process.workingFolder = m_folder.path() / "missing";
    EXPECT_EQ(desktop::supervise(process, std::nullopt, [&](const std::string& line) { m_said.push_back(line); }), 1);
    EXPECT_EQ(m_said, (Lines{"cannot execute " + m_executable.string() + " in " + process.workingFolder.string()}));
}

// --- The command line ------------------------------------------------------------------------------------------------

struct UsageCase {
    const char* label;
    Lines arguments;
    const char* said;
};

class CameraUsage : public testing::TestWithParam<UsageCase> {};

TEST_P(CameraUsage, ThatIsBadEndsWithTwo) {
    const TestFolder folder;
    Lines command = {CAMERA_PROGRAM};
    command.insert(command.end(), GetParam().arguments.begin(), GetParam().arguments.end());
    const ProgramResult result = runProgram(command, folder.path(), {"XDG_STATE_HOME=" + folder.path().string()});
    EXPECT_EQ(result.status, 2) << GetParam().label;
    EXPECT_NE(result.err.find(GetParam().said), std::string::npos) << GetParam().label << ": " << result.err;
    EXPECT_EQ(result.out, "") << GetParam().label;
}

INSTANTIATE_TEST_SUITE_P(
    Table, CameraUsage,
    testing::Values(UsageCase{"nothing", {}, "subcommand"}, UsageCase{"no video", {"run"}, "--video is required"},
                    UsageCase{"missing video",
                              {"run", "--video", "missing.mp4"},
                              "no video missing.mp4: expected a file, a device"},
                    UsageCase{"unknown model", {"demo", "--model", "eyes"}, "no model card \"eyes\": expected a file"},
                    UsageCase{"networks that are no folder",
                              {"demo", "--networks", "missing"},
                              "--networks: expected a folder, got missing"},
                    UsageCase{"no time", {"demo", "--seconds", "0"}, "--seconds"},
                    UsageCase{"no number", {"demo", "--seconds", "soon"}, "--seconds"},
                    UsageCase{"unknown option", {"demo", "--colour"}, "--colour"}),
    [](const auto& instance) { return "Case" + std::to_string(instance.index); });

}  // namespace
