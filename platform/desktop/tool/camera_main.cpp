#include <CLI/CLI.hpp>
#include <functional>
#include <iostream>
#include <map>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include "base/command_line.h"
#include "desktop/config/not_now.h"
#include "desktop/frames/source_name.h"
#include "desktop/tool/background.h"
#include "desktop/tool/desktop_camera.h"
#include "desktop/tool/followers_after_start.h"
#include "desktop/tool/options_file.h"

namespace {

using desktop::DesktopCamera;

constexpr const char* kSpeaker = "senvo";
constexpr int kNotNow = 3;
constexpr const char* kDefaultName = "camera";
constexpr std::chrono::milliseconds kLook(50);

int run(desktop::CameraOptions options, int seconds) {
    if (options.state.empty()) {
        options.state = desktop::defaultStateFolder(kDefaultName);
    }
    const DesktopCamera camera(options, "");
    const desktop::ChosenCard chosen = desktop::chooseModelCard(options.model, options.networks);
    std::cout << "video: " << desktop::displayName(options.video) << "\nmodel: " << chosen.card.string() << " ("
              << chosen.reason << ")"
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
    desktop::FollowersAfterStart followers(camera.socket());
    std::vector<desktop::SupervisedProcess> processes = camera.processes();
    processes.front().started = [&followers] { followers.started(); };
    const auto duration = seconds > 0 ? std::optional(std::chrono::seconds(seconds)) : std::nullopt;
    return desktop::supervise(processes, duration,
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

struct PasswordOptions {
    std::filesystem::path state;
    std::string user = desktop::kOperator;
    std::optional<desktop::Role> role;
    bool random = false;
};

int setPassword(const PasswordOptions& options) {
    const bool random = options.random;
    const std::filesystem::path folder =
        options.state.empty() ? desktop::defaultStateFolder(kDefaultName) : options.state;
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
    desktop::Accounts(desktop::accountsFile(folder)).set(options.user, password, options.role);
    std::cout << "user: " << options.user << '\n';
    if (random) {
        std::cout << "password: " << password << '\n';
    }
    return EXIT_SUCCESS;
}

/** Does it, or says that it cannot be done now. */
int nowOrLater(const std::function<int()>& command) {
    try {
        return command();
    } catch (const desktop::NotNow& error) {
        std::cerr << kSpeaker << ": " << error.what() << '\n';
        return kNotNow;
    }
}

void addTlsOptions(CLI::App& app, desktop::TlsOptions& options) {
    CLI::Option* const port =
        app.add_option("--tls", options.port,
                       "Serve the web interface with TLS on this port; the other port then answers leaders alone")
            ->check(CLI::Range(0, 65535));
    CLI::Option* const certificate =
        app.add_option("--tls-cert", options.certificate,
                       "Certificate (PEM), with those between it and its root behind it; by default one is made")
            ->needs(port);
    CLI::Option* const key =
        app.add_option("--tls-key", options.key, "The certificate's key (PEM), without a passphrase")
            ->needs(certificate);
    certificate->needs(key);
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
    addTlsOptions(app, options.tls);
    desktop::addOptionsFile(app);
    return perform(app, argc, argv, kSpeaker, [&] { return nowOrLater([&] { return run(options, seconds); }); });
}

int performPassword(int argc, char** argv) {
    CLI::App app(
        "Sets the password of a user of the web interface, read from standard input, 10 characters or more. It counts "
        "at once.",
        "senvo password");
    PasswordOptions options;
    app.add_option("--state", options.state, "The camera's folder; by default that of senvo run");
    app.add_option("--user", options.user, "Whose password; a user who is new needs a role")->capture_default_str();
    const std::map<std::string, desktop::Role> roles = {{"viewer", desktop::Role::Viewer},
                                                        {"operator", desktop::Role::Operator}};
    app.add_option("--role", options.role,
                   "viewer, who sees the live picture, counts and reports, or operator, who changes everything")
        ->transform(CLI::CheckedTransformer(roles));
    app.add_flag("--random", options.random, "Make one and print it");
    return perform(app, argc, argv, kSpeaker, [&] { return nowOrLater([&] { return setPassword(options); }); });
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
