#include <csignal>
#include <cstdlib>
#include <iostream>

#include "app/application.h"
#include "scripted_platform.h"

/**
 * The real process on the scripted platform: one person stands in the middle of every frame. With a number as argument
 * it is asked to end when it has analysed so many frames, and prints the number then. Four more numbers are the
 * stream's width and height and the model's.
 */
int main(int argc, char** argv) {
    const long last = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 0;
    const scripted::Candidate person = {
        .classId = 0, .score = 0.9F, .ymin = 0.4F, .xmin = 0.4F, .ymax = 0.6F, .xmax = 0.6F};
    scripted::reset();
    const auto number = [&](int place, const char* standard) { return argc > place ? argv[place] : standard; };
    const auto pixels = [&](int place, const char* standard) {
        return static_cast<uint32_t>(std::strtoul(number(place, standard), nullptr, 10));
    };
    scripted::offerResolutions(1, {{pixels(2, "640"), pixels(3, "360")}});
    scripted::onJob([=, frame = 0L](const std::vector<uint8_t>&) mutable {
        if (++frame == last) {
            std::cout << frame << '\n' << std::flush;
            kill(getpid(), SIGTERM);
        }
        return std::vector<scripted::Candidate>{person};
    });
    scripted::parameters()["ModelWidth"] = number(4, "320");
    scripted::parameters()["ModelHeight"] = number(5, "180");
    scripted::parameters()["MainLoopTime"] = "5";
    scripted::parameters()["DetectPersons"] = "true";
    scripted::parameters()["Sensitivity"] = "0.35";
    Application application;
    return application.main();
}
