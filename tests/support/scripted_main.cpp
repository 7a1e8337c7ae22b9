#include <csignal>
#include <cstdlib>
#include <iostream>

#include "application.h"
#include "scripted_platform.h"

/**
 * The real process on the scripted platform: one person stands in the middle of every frame. With a number as argument
 * it is asked to end when it has analysed so many frames, and prints the number then.
 */
int main(int argc, char** argv) {
    const long last = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 0;
    const scripted::Candidate person = {
        .classId = 0, .score = 0.9F, .ymin = 0.4F, .xmin = 0.4F, .ymax = 0.6F, .xmax = 0.6F};
    scripted::reset();
    scripted::offerResolutions(1, {{640, 360}});
    scripted::onJob([=, frame = 0L](const std::vector<uint8_t>&) mutable {
        if (++frame == last) {
            std::cout << frame << '\n' << std::flush;
            kill(getpid(), SIGTERM);
        }
        return std::vector<scripted::Candidate>{person};
    });
    scripted::parameters()["ModelWidth"] = "320";
    scripted::parameters()["ModelHeight"] = "180";
    scripted::parameters()["MainLoopTime"] = "5";
    scripted::parameters()["DetectPersons"] = "true";
    scripted::parameters()["Sensitivity"] = "0.35";
    Application application;
    return application.main();
}
