#pragma once

#include "fastcgi_client.h"
#include "program.h"
#include "test_folder.h"
#include "this_build.h"

/** Whether this build's programs are another processor's and run in an emulator. */
inline bool isEmulated() {
    return this_build::command("").size() > 1;
}

/** A folder for the real process on the scripted platform, with all that a camera's package provides. */
class ScriptedProcess {
public:
    ScriptedProcess() {
        for (const char* name : {"localdata", "tmp", "mnt/flash/usr/local/packages/ostrel_senvo",
                                 "usr/local/packages/ostrel_senvo/localdata", "usr/local/packages/ostrel_senvo/html"}) {
            std::filesystem::create_directories(m_folder.path() / name);
        }
        writeFile(m_folder.path() / "mnt/flash/usr/local/packages/ostrel_senvo/detect_960_540_tpu.tflite", "model");
    }

    /**
     * Starts it as a supervisor does: SIGTERM is held back at the start, so that none is lost before the process can
     * handle it. frames: it ends by itself after so many; none: it goes on.
     */
    pid_t start(const std::string& frames = "") const {
        std::vector<std::string> command = this_build::command("ostrel_senvo_scripted");
        if (!frames.empty()) {
            command.push_back(frames);
        }
        return startProgram(command, m_folder.path(), {"OSTREL_SENVO_ROOT=" + m_folder.path().string()}, {SIGTERM});
    }

    const std::filesystem::path& folder() const { return m_folder.path(); }
    FastCgiClient service() const {
        return FastCgiClient(m_folder.path() / "usr/local/packages/ostrel_senvo/html/ostrel_senvo_fcgi.socket");
    }

    /** What the web service answers to this request; nothing while nobody listens. */
    std::string answer(const std::string& action) const {
        try {
            return service().get("action=" + action);
        } catch (const std::runtime_error&) {
            return "";
        }
    }

    /** Whether the web service answers this request, and well. */
    bool answers(const std::string& action) const { return answer(action).rfind("Status: 200 OK\r\n", 0) == 0; }

private:
    TestFolder m_folder;
};
