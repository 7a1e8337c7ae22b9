#include "camera_folder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "program.h"
#include "test_folder.h"

namespace {

namespace fs = std::filesystem;

template <typename Call>
std::string errorOf(Call call) {
    try {
        call();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "nothing";
}

TEST(CameraFolder, IsLaidOutAndUsedAgain) {
    const TestFolder folder;
    {
        const desktop::CameraFolder camera(folder.path() / "a/camera");
        EXPECT_EQ(camera.root(), folder.path() / "a/camera/root");
        EXPECT_TRUE(fs::is_directory(camera.application() / "localdata"));
        EXPECT_TRUE(fs::is_directory(camera.root() / "tmp"));
        EXPECT_TRUE(fs::is_directory(camera.root() / "mnt/flash/usr/local/packages/ostrel_senvo"));
        writeFile(camera.log(), "kept");
    }
    const desktop::CameraFolder again(folder.path() / "a/camera");
    EXPECT_EQ(readFile(again.log()), "kept");
}

TEST(CameraFolder, HoldsOneCamera) {
    const TestFolder folder;
    const desktop::CameraFolder camera(folder.path());
    EXPECT_EQ(errorOf([&] { const desktop::CameraFolder second(folder.path()); }),
              "a camera runs in " + folder.path().string() + " already: expected a folder of its own");
}

TEST(CameraFolder, ThatCannotBeLaidOutIsNamed) {
    const TestFolder folder;
    writeFile(folder.path() / "file", "");
    EXPECT_EQ(errorOf([&] { const desktop::CameraFolder camera(folder.path() / "file"); }),
              "cannot lay out the camera's folder " + (folder.path() / "file").string() + ": Not a directory");
}

TEST(CameraFolder, InstallsTheModelForBothMountings) {
    const TestFolder folder;
    writeFile(folder.path() / "card.json", R"({"engine": "motion", "tensor": {"width": 1, "height": 1}})");
    const desktop::CameraFolder camera(folder.path() / "camera");
    camera.installModel(folder.path() / "card.json", 960, 540);
    const fs::path installed = camera.root() / "mnt/flash/usr/local/packages/ostrel_senvo";
    const auto landscape = nlohmann::json::parse(readFile(installed / "detect_960_540_tpu.tflite"));
    const auto portrait = nlohmann::json::parse(readFile(installed / "detect_540_960_tpu.tflite"));
    EXPECT_EQ(landscape, nlohmann::json::parse(R"({"engine": "motion", "tensor": {"width": 960, "height": 540}})"));
    EXPECT_EQ(portrait, nlohmann::json::parse(R"({"engine": "motion", "tensor": {"width": 540, "height": 960}})"));
}

TEST(CameraFolder, RefusesACardThatIsNone) {
    const TestFolder folder;
    const desktop::CameraFolder camera(folder.path() / "camera");
    for (const char* text : {"", "no JSON", "[1]"}) {
        writeFile(folder.path() / "card.json", text);
        EXPECT_EQ(errorOf([&] { camera.installModel(folder.path() / "card.json", 960, 540); }),
                  (folder.path() / "card.json").string() + ": expected a model card, a JSON object");
    }
}

TEST(CameraFolder, WritesAConfigurationThatReadsBack) {
    const TestFolder folder;
    const desktop::CameraFolder camera(folder.path() / "camera");
    desktop::DesktopConfig config;
    config.video = "rtsp://camera/\"stream\"";
    config.pacing = desktop::Pacing::Virtual;
    config.networksFolder = "/networks";
    config.stateFolder = "/state";
    config.manifest = "/manifest.json";
    config.mqtt = {"[::1]:1883/gate", "camera", "/password", "/ca.pem", "/cert.pem", "/key.pem"};
    camera.writeConfig(config);
    const desktop::DesktopConfig read = desktop::parseDesktopConfig(readFile(camera.configFile()));
    EXPECT_EQ(read.video, config.video);
    EXPECT_EQ(read.pacing, config.pacing);
    EXPECT_EQ(read.networksFolder, config.networksFolder);
    EXPECT_EQ(read.stateFolder, config.stateFolder);
    EXPECT_EQ(read.manifest, config.manifest);
    EXPECT_EQ(read.mqtt.address, config.mqtt.address);
    EXPECT_EQ(read.mqtt.user, config.mqtt.user);
    EXPECT_EQ(read.mqtt.passwordFile, config.mqtt.passwordFile);
    EXPECT_EQ(read.mqtt.caFile, config.mqtt.caFile);
    EXPECT_EQ(read.mqtt.certFile, config.mqtt.certFile);
    EXPECT_EQ(read.mqtt.keyFile, config.mqtt.keyFile);
}

TEST(ModelCards, AreFoundByPathOrName) {
    const TestFolder folder;
    const WorkingFolder inFolder(folder.path());
    writeFile(folder.path() / "own.json", "{}");
    EXPECT_EQ(desktop::findModelCard("own.json"), fs::current_path() / "own.json");
    EXPECT_EQ(desktop::findModelCard("motion"), desktop::packageFolder() / "models/motion.json");
    const std::string error = errorOf([] { desktop::findModelCard("eyes"); });
    EXPECT_EQ(error.rfind("no model card \"eyes\": expected a file or one of ", 0), 0U) << error;
    EXPECT_NE(error.find("motion"), std::string::npos) << error;
    EXPECT_NE(errorOf([] { desktop::findModelCard("../models/motion"); }), "nothing") << "a name is no path";
}

}  // namespace
