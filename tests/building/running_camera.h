#pragma once

#include <chrono>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>

#include "curl.h"
#include "this_build.h"

/** Asks again and again until what is expected is so; false when it does not become so in the time that is far enough.
 */
inline bool eventually(const std::function<bool()>& expected,
                       std::chrono::seconds farEnough = std::chrono::seconds(150)) {
    const auto end = std::chrono::steady_clock::now() + farEnough;
    while (std::chrono::steady_clock::now() < end) {
        if (expected()) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
    return expected();
}

/** The value behind "key: " in a program's output. */
inline std::string valueOf(const std::string& output, const std::string& key) {
    std::smatch found;
    return std::regex_search(output, found, std::regex("(?:^|\n)" + key + ": ([^\n]*)\n")) ? found[1].str() : "";
}

/** How often something stands in a text. */
inline size_t occurrences(const std::string& text, const std::string& what) {
    size_t count = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size())) {
        ++count;
    }
    return count;
}

/** Kills the application of the camera in a state folder; false when there is none. */
inline bool killApplicationOf(const std::filesystem::path& state) {
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        std::error_code gone;
        const auto cwd = std::filesystem::read_symlink(entry.path() / "cwd", gone);
        if (!gone && cwd == state / "root/usr/local/packages/ostrel_senvo") {
            return kill(std::stoi(entry.path().filename().string()), SIGKILL) == 0;
        }
    }
    return false;
}

/** senvo run with a camera on the drawn scene, as a process. */
class RunningCamera {
public:
    explicit RunningCamera(std::filesystem::path folder, std::string listen = "127.0.0.1",
                           std::vector<std::string> more = {})
        : m_folder(std::move(folder)), m_listen(std::move(listen)), m_more(std::move(more)) {
        std::filesystem::create_directories(m_folder);
        start("0");
        password = valueOf(output(), "password");
    }

    void start(const std::string& port) {
        std::filesystem::remove(m_folder / "out");
        std::vector<std::string> command = {this_build::program("senvo-camera"),
                                            "run",
                                            "--video",
                                            "scene:plaza",
                                            "--listen",
                                            m_listen,
                                            "--port",
                                            port,
                                            "--state",
                                            state()};
        command.insert(command.end(), m_more.begin(), m_more.end());
        m_process = std::make_unique<Child>(startProgram(command, m_folder));
        EXPECT_TRUE(eventually([this] { return output().find("\nuser: ") != std::string::npos; }))
            << output() << errors();
    }

    /** Asks it to end; its exit status. */
    int stop() {
        kill(m_process->pid(), SIGTERM);
        return m_process->wait(30000);
    }

    std::string output() const { return readFile(m_folder / "out"); }
    std::string errors() const { return readFile(m_folder / "err"); }
    std::filesystem::path state() const { return m_folder / "state"; }
    std::filesystem::path application() const { return state() / "root/usr/local/packages/ostrel_senvo"; }
    std::string address() const {
        const std::string url = valueOf(output(), "url");
        return url.size() > 8 ? url.substr(7, url.size() - 8) : "";
    }
    CameraAccess access() const { return {address(), password}; }

    std::string password;

private:
    std::filesystem::path m_folder;
    std::string m_listen;
    std::vector<std::string> m_more;
    std::unique_ptr<Child> m_process;
};
