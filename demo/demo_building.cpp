#include "demo/demo_building.h"

#include <algorithm>
#include <ctime>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <utility>

#include "desktop/tool/followers_after_start.h"
#include "evaluate/settings_upload.h"
#include "web/parameter_io.h"

namespace {

constexpr const char* kLeader = "leader"; /**< the user as which the leader asks its followers */
constexpr const char* kReportMinutes = "1";

SettingsTags tagsOf(const std::string& document) {
    return parameter_io::parseXMLData_no_dependency("<root>" + document + "</root>");
}

std::string timeOfDay() {
    const std::time_t now = std::time(nullptr);
    std::tm local = {};
    localtime_r(&now, &local);
    std::ostringstream text;
    text << std::put_time(&local, "%H:%M:%S");
    return text.str();
}

}  // namespace

DemoBuilding::Member::Member(const desktop::CameraOptions& options, const std::string& label)
    : camera(options, label.empty() ? "" : " of " + label), name(label.empty() ? "Leader" : label) {}

DemoBuilding::DemoBuilding(const desktop::CameraOptions& leader, int followers, Settings settings)
    : m_settings(std::move(settings)), m_password(desktop::randomPassword()) {
    m_cameras.push_back(std::make_unique<Member>(leader, ""));
    const desktop::DesktopCamera& first = m_cameras.front()->camera;
    first.accounts().set(kLeader, m_password, desktop::Role::Operator);
    for (int i = 1; i <= followers; ++i) {
        desktop::CameraOptions options = leader;
        const std::string folder = "follower-" + std::to_string(i);
        options.state = leader.state / folder;
        options.mqtt.address = desktop::mqttAddressBelow(leader.mqtt.address, folder);
        options.port = leader.port == 0 ? 0 : leader.port + i;
        m_cameras.push_back(std::make_unique<Member>(options, "Follower " + std::to_string(i)));
        // One login for the whole building.
        std::filesystem::copy_file(desktop::accountsFile(first.folder().path()),
                                   desktop::accountsFile(m_cameras.back()->camera.folder().path()),
                                   std::filesystem::copy_options::overwrite_existing);
    }
    for (const auto& member : m_cameras) {
        member->client = std::make_unique<CameraClient>(member->camera.address(), kLeader, m_password, m_ending);
    }
}

std::vector<desktop::SupervisedProcess> DemoBuilding::processes() {
    std::vector<desktop::SupervisedProcess> all;
    for (const auto& member : m_cameras) {
        std::vector<desktop::SupervisedProcess> own = member->camera.processes();
        own.front().started = [&starts = member->starts] { ++starts; };
        all.insert(all.end(), own.begin(), own.end());
    }
    return all;
}

bool DemoBuilding::setUp(Member& member, bool leader) {
    const int start = member.starts;
    if (start == 0 || !member.camera.serves()) {
        return false;
    }
    if (member.setUp != 0) {
        // What people have changed since stays: started again, the application only has to ask its followers.
        if (!desktop::postAction(member.camera.socket(), "use_followers")) {
            return false;
        }
        member.setUp = start;
        return true;
    }
    SettingsTags tags = tagsOf(member.client->get("get_all_parameters"));
    if (!tags.contains("CamName")) {
        return false;
    }
    applySettings(m_settings, tags);
    tags["CamName"] = member.name;
    tags["RepInt"] = kReportMinutes;
    for (size_t i = 1; leader && i <= DemoBuilding::kMostFollowers; ++i) {
        const std::string follower = "FO" + std::to_string(i) + "_";
        const bool exists = i < m_cameras.size();
        tags[follower + "Active"] = exists ? "1" : "0";
        tags[follower + "Name"] = exists ? m_cameras[i]->name : "";
        tags[follower + "IP"] = exists ? m_cameras[i]->camera.address() : "";
        tags[follower + "Login"] = exists ? kLeader : "";
        tags[follower + "Pwd"] = exists ? m_password : "";
    }
    if (!member.client->post("set_post_parameters", uploadBody(tags))) {
        return false;
    }
    member.setUp = start;
    return true;
}

bool DemoBuilding::step() {
    bool all = true;
    for (size_t i = 0; i < m_cameras.size(); ++i) {
        Member& member = *m_cameras[i];
        all = (member.setUp == member.starts || setUp(member, i == 0)) && all;
    }
    if (all && !m_announced) {
        m_announced = true;
        printAccess();
    }
    if (m_announced) {
        printCounts();
    }
    return true;
}

void DemoBuilding::printAccess() const {
    std::cout << accessLines(m_cameras.front()->camera);
    for (size_t i = 1; i < m_cameras.size(); ++i) {
        std::cout << m_cameras[i]->name << ": " << m_cameras[i]->camera.url() << '\n';
    }
    std::cout << std::flush;
}

void DemoBuilding::printCounts() {
    const CameraClient& leader = *m_cameras.front()->client;
    SettingsTags panel = tagsOf(leader.get("get_data_panel_info"));
    const std::string occupancy = leader.get("get_occupancy_count");
    if (panel.empty() || occupancy.empty()) {
        return;
    }
    std::string line = panel["StatusCam_0"] + ": occupancy " + occupancy + ", in areas " + panel["AOICam_0"];
    if (m_cameras.size() > 1) {
        line += "; building: occupancy " + panel["TotalOcc"];
        for (size_t i = 1; i < m_cameras.size(); ++i) {
            const std::string number = std::to_string(i);
            line += "; " + panel["NameCam_" + number] + ": " + panel["StatusCam_" + number] + ", in areas " +
                    panel["AOICam_" + number];
        }
    }
    if (line != m_printed) {
        m_printed = line;
        std::cout << timeOfDay() << "  " << line << std::endl;
    }
}
