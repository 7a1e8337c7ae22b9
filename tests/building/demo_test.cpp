#include "running_camera.h"
#include "this_build.h"

namespace {

/** The processes whose working folder is at or below a folder. */
std::string processesIn(const std::filesystem::path& folder) {
    std::string found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        std::error_code gone;
        const std::filesystem::path cwd = std::filesystem::read_symlink(entry.path() / "cwd", gone);
        if (!gone && cwd.string().rfind(folder.string(), 0) == 0) {
            found += entry.path().filename().string() + " ";
        }
    }
    return found;
}

TEST(Demo, IsALeaderWithFollowersThatOneCtrlCEnds) {
    const TestFolder folder;
    const TestFolder temporary;
    Child demo(startProgram(
        {this_build::program("senvo-demo"), "--followers", "2", "--port", "0", "--state", folder.path() / "state"},
        folder.path(), {"TMPDIR=" + temporary.path().string()}));
    const auto output = [&] { return readFile(folder.path() / "out"); };
    ASSERT_TRUE(eventually([&] { return output().find("Follower 2: http://") != std::string::npos; }))
        << output() << readFile(folder.path() / "err");
    const auto addressOf = [&](const std::string& key) {
        const std::string url = valueOf(output(), key);
        return url.substr(7, url.size() - 8);
    };
    const std::string password = valueOf(output(), "password");
    EXPECT_EQ(valueOf(output(), "user"), "operator");
    const CameraAccess leader(addressOf("url"), password);
    const std::string settings = leader.get("get_all_parameters");
    EXPECT_NE(settings.find("<CamName>Leader</CamName>"), std::string::npos);
    for (const char* follower : {"1", "2"}) {
        const std::string name = std::string("Follower ") + follower;
        const CameraAccess access(addressOf(name), password);
        EXPECT_EQ(access.get("get_analysis_resolution"), "1280x720");
        EXPECT_NE(settings.find("<FO" + std::string(follower) + "_IP>" + access.address() + "<"), std::string::npos);
    }
    EXPECT_NE(settings.find("<FO3_Active>0<"), std::string::npos);
    EXPECT_TRUE(eventually([&] { return output().find("  Running: occupancy ") != std::string::npos; })) << output();

    kill(demo.pid(), SIGINT);
    EXPECT_EQ(demo.wait(30000), 0);
    EXPECT_EQ(processesIn(folder.path() / "state"), "");
    EXPECT_TRUE(std::filesystem::is_empty(temporary.path()));
    EXPECT_EQ(readFile(folder.path() / "err"), "");
}

TEST(Demo, LeavesSettingsAloneOnceItHasSetThemUp) {
    const TestFolder folder;
    const std::filesystem::path state = folder.path() / "state";
    Child demo(startProgram({this_build::program("senvo-demo"), "--followers", "1", "--port", "0", "--state", state},
                            folder.path()));
    const auto output = [&] { return readFile(folder.path() / "out"); };
    ASSERT_TRUE(eventually([&] { return output().find("Follower 1: http://") != std::string::npos; })) << output();
    const std::string url = valueOf(output(), "url");
    const CameraAccess leader(url.substr(7, url.size() - 8), valueOf(output(), "password"));
    const auto timesAsked = [&] {
        return occurrences(leader.get("get_logfile_as_plain_text"), "The followers of the settings are asked.");
    };
    EXPECT_EQ(timesAsked(), 0U);
    // A set-up anew could not log in, and would never end.
    const std::filesystem::path accounts = state / "accounts";
    writeFile(accounts, std::regex_replace(readFile(accounts), std::regex("leader:.*\n"), ""));
    for (size_t start = 1; start <= 2; ++start) {
        ASSERT_TRUE(killApplicationOf(state));
        EXPECT_TRUE(eventually([&] { return timesAsked() == start; })) << timesAsked() << " times";
    }
    EXPECT_TRUE(
        eventually([&] { return leader.get("get_all_parameters").find("<CamName>Leader<") != std::string::npos; }));
}

TEST(Demo, EndsWhenItsTimeIsOver) {
    const TestFolder folder;
    const ProgramResult result = runProgram(
        {this_build::program("senvo-demo"), "--seconds", "4", "--port", "0", "--state", folder.path() / "state"},
        folder.path());
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(valueOf(result.out, "password"), "");
    EXPECT_EQ(processesIn(folder.path() / "state"), "");
    const ProgramResult again = runProgram(
        {this_build::program("senvo-demo"), "--seconds", "4", "--port", "0", "--state", folder.path() / "state"},
        folder.path());
    EXPECT_EQ(again.status, 0) << again.err;
    EXPECT_EQ(valueOf(again.out, "password"), "") << "it is told once";
    EXPECT_NE(valueOf(again.out, "url"), "");
}

}  // namespace
