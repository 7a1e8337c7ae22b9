#include <functional>
#include <iostream>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include "background.h"
#include "desktop_camera.h"
#include "options_file.h"
#include "source_name.h"

namespace {

using desktop::DesktopCamera;

constexpr int kUnusable = 2;
constexpr const char* kDefaultName = "camera";
constexpr std::chrono::milliseconds kLook(50);

int run(desktop::CameraOptions options, int seconds) {
    if (options.state.empty()) {
        options.state = desktop::defaultStateFolder(kDefaultName);
    }
    const DesktopCamera camera(options, "");
    std::cout << "video: " << desktop::displayName(options.video)
              << "\nmodel: " << desktop::findModelCard(options.model).string()
              << "\nstate: " << camera.folder().path().string() << "\nlog: " << camera.folder().log().string()
              << std::endl;
    desktop::holdBackSupervisorSignals();
    const desktop::Background announcement(kLook, [&camera] {
        if (!camera.serves()) {
            return true;
        }
        std::cout << accessLines(camera) << std::flush;
        return false;
    });
    const auto duration = seconds > 0 ? std::optional(std::chrono::seconds(seconds)) : std::nullopt;
    return desktop::supervise(camera.processes(), duration,
                              [](const std::string& line) { std::cerr << "senvo: " << line << std::endl; });
}

/** Reads a line; on a terminal what is typed does not show. */
std::string readSecret(const char* prompt) {
    termios before = {};
    const bool terminal = tcgetattr(STDIN_FILENO, &before) == 0;
    if (terminal) {
        std::cerr << prompt << std::flush;
        termios silent = before;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(STDIN_FILENO, TCSANOW, &silent);
    }
    std::string line;
    const bool read = static_cast<bool>(std::getline(std::cin, line));
    if (terminal) {
        tcsetattr(STDIN_FILENO, TCSANOW, &before);
        std::cerr << '\n';
    }
    if (!read) {
        throw std::runtime_error("expected a password on standard input, got nothing");
    }
    return line;
}

int setPassword(const std::filesystem::path& state, bool random) {
    const std::filesystem::path folder = state.empty() ? desktop::defaultStateFolder(kDefaultName) : state;
    if (!std::filesystem::is_directory(folder)) {
        throw std::runtime_error("no camera in " + folder.string() +
                                 ": expected the state folder of one that has been run, as --state names it");
    }
    std::string password;
    if (random) {
        password = desktop::randomPassword();
    } else {
        password = readSecret("New password: ");
        if (isatty(STDIN_FILENO) != 0 && readSecret("Once more: ") != password) {
            throw std::runtime_error("the two passwords differ; the old one stays");
        }
    }
    desktop::Accounts(desktop::accountsFile(folder)).set(desktop::kOperator, password);
    std::cout << "user: " << desktop::kOperator << '\n';
    if (random) {
        std::cout << "password: " << password << '\n';
    }
    return EXIT_SUCCESS;
}

/** Does what a command line asks for, and gives the status to end with. */
int perform(CLI::App& app, int argc, char** argv, const std::function<int()>& command) {
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        return app.exit(success);
    } catch (const CLI::ParseError& error) {
        app.exit(error, std::cerr, std::cerr);
        return kUnusable;
    }
    try {
        return command();
    } catch (const std::exception& error) {
        std::cerr << "senvo: " << error.what() << '\n';
        return kUnusable;
    }
}

int performRun(int argc, char** argv) {
    CLI::App app(
        "Counts what a video shows, until stopped, and serves the web interface. The application is started again when "
        "it ends with an error or hangs.",
        "senvo run");
    desktop::CameraOptions options;
    int seconds = 0;
    app.add_option("--video", options.video,
                   "A video file, an address (rtsp://...), a webcam (/dev/video0) or scene:plaza")
        ->required();
    addCameraOptions(app, options, seconds);
    desktop::addOptionsFile(app);
    return perform(app, argc, argv, [&] { return run(options, seconds); });
}

int performPassword(int argc, char** argv) {
    CLI::App app("Sets the password of the web interface's user, read from standard input. It counts at once.",
                 "senvo password");
    std::filesystem::path state;
    bool random = false;
    app.add_option("--state", state, "The camera's folder; by default that of senvo run");
    app.add_flag("--random", random, "Make one and print it");
    return perform(app, argc, argv, [&] { return setPassword(state, random); });
}

}  // namespace

int main(int argc, char** argv) {
    // Settings hold the passwords of followers, and the log may hold them, too.
    umask(S_IRWXG | S_IRWXO);
    const std::string subcommand = argc > 1 ? argv[1] : "";
    if (subcommand == "run") {
        return performRun(argc - 1, argv + 1);
    }
    if (subcommand == "password") {
        return performPassword(argc - 1, argv + 1);
    }
    std::cerr << "senvo: expected the subcommand run or password, got \"" << subcommand << "\"\n";
    return kUnusable;
}
