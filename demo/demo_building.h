#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "config/settings_file.h"
#include "demo/camera_client.h"
#include "desktop/tool/desktop_camera.h"

/**
 * A leader and its followers on one machine, each a whole camera on the same drawn scene: prepares them, brings the
 * scene's areas into their settings over their own web interfaces, and prints what the leader counts.
 */
class DemoBuilding {
public:
    static constexpr int kMostFollowers = 10;

    /** followers is 0..10. Their ports follow the leader's. Throws what DesktopCamera throws. */
    DemoBuilding(const desktop::CameraOptions& leader, int followers, Settings settings);

    std::vector<desktop::SupervisedProcess> processes();

    /**
     * One step of what goes on beside the cameras: sets up those that have just started, tells how to reach them once
     * all serve, and prints the counts when they have changed. True.
     */
    bool step();

    /** Lets a step that is at it return soon: a camera that has ended still seems to listen. Any thread. */
    void end() { m_ending = true; }

private:
    struct Member {
        Member(const desktop::CameraOptions& options, const std::string& label);

        desktop::DesktopCamera camera;
        std::string name;
        std::unique_ptr<CameraClient> client;
        std::atomic<int> starts = 0; /**< of the application, counted by the supervisor */
        int setUp = 0;               /**< the start that was last set up */
    };

    bool setUp(Member& member, bool leader);
    void printAccess() const;
    void printCounts();

    Settings m_settings;
    std::string m_password; /**< of the user "leader", whom all cameras know, for as long as the demo runs */
    std::atomic<bool> m_ending = false;
    std::vector<std::unique_ptr<Member>> m_cameras;
    bool m_announced = false;
    std::string m_printed;
};
