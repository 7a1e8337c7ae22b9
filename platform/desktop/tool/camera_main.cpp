#include <iostream>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include "background.h"
#include "desktop_camera.h"
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

}  // namespace

int main(int argc, char** argv) {
    // Settings hold the passwords of followers, and the log may hold them, too.
    umask(S_IRWXG | S_IRWXO);
    CLI::App app("Runs a camera on this machine.", "senvo");
    app.require_subcommand(1);
    desktop::CameraOptions options;
    int seconds = 0;
    CLI::App* const runCommand = app.add_subcommand(
        "run",
        "Counts what a video shows, until stopped, and serves the web interface. The application is started again when "
        "it ends with an error or hangs.");
    runCommand
        ->add_option("--video", options.video,
                     "A video file, an address (rtsp://...), a webcam (/dev/video0) or scene:plaza")
        ->required();
    addCameraOptions(*runCommand, options, seconds);
    bool random = false;
    CLI::App* const password = app.add_subcommand(
        "password", "Sets the password of the web interface's user, read from standard input. It counts at once.");
    password->add_option("--state", options.state, "The camera's folder; by default that of senvo run");
    password->add_flag("--random", random, "Make one and print it");
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        return app.exit(success);
    } catch (const CLI::ParseError& error) {
        app.exit(error, std::cerr, std::cerr);
        return kUnusable;
    }
    try {
        return runCommand->parsed() ? run(options, seconds) : setPassword(options.state, random);
    } catch (const std::exception& error) {
        std::cerr << "senvo: " << error.what() << '\n';
        return kUnusable;
    }
}
