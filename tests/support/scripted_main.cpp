#include "application.h"
#include "scripted_platform.h"

/** The real process on the scripted platform: one person stands in the middle of every frame. */
int main() {
    scripted::reset();
    scripted::offerResolutions(1, {{640, 360}});
    scripted::find({{.classId = 0, .score = 0.9F, .ymin = 0.4F, .xmin = 0.4F, .ymax = 0.6F, .xmax = 0.6F}});
    scripted::parameters()["ModelWidth"] = "320";
    scripted::parameters()["ModelHeight"] = "180";
    scripted::parameters()["MainLoopTime"] = "5";
    scripted::parameters()["DetectPersons"] = "true";
    scripted::parameters()["Sensitivity"] = "0.35";
    Application application;
    return application.main();
}
