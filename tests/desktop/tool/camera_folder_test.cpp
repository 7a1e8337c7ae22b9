#include "desktop/tool/camera_folder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

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

TEST(CameraFolder, OfSomebodyElseIsRefusedByName) {
    const TestFolder folder;
    const bool root = geteuid() == 0;
    const fs::path foreign = root ? folder.path() / "theirs" : fs::path("/usr");
    if (root) {
        fs::create_directory(foreign);
        ASSERT_EQ(chown(foreign.c_str(), 65534, 65534), 0);
    }
    EXPECT_EQ(errorOf([&] { const desktop::CameraFolder camera(foreign); }),
              "expected the camera's folder to belong to user " + std::to_string(geteuid()) + ", got " +
                  foreign.string() + " of user " + (root ? "65534" : "0"));
    EXPECT_FALSE(fs::exists(foreign / "root")) << "nothing was written into it";
}

struct OpenCase {
    const char* label;
    const char* place; /**< inside the camera's folder */
    fs::perms more;
};

TEST(CameraFolder, ThatOthersMayWriteToIsRefusedByName) {
    for (const OpenCase& entry :
         {OpenCase{"everybody", "", fs::perms::others_write}, OpenCase{"the group", "", fs::perms::group_write},
          OpenCase{"a folder inside", "root/tmp", fs::perms::others_write},
          OpenCase{"a file", "front.lua", fs::perms::others_write},
          OpenCase{"a folder deep inside", "root/usr/local/packages", fs::perms::group_write}}) {
        const TestFolder folder;
        const std::string path = folder.path() / "camera";
        { const desktop::CameraFolder camera(path); }
        writeFile(path + "/front.lua", "");
        fs::permissions(path, fs::perms::others_exec, fs::perm_options::add);
        const std::string place = *entry.place == '\0' ? path : path + "/" + entry.place;
        fs::permissions(place, entry.more, fs::perm_options::add);
        EXPECT_EQ(errorOf([&] { const desktop::CameraFolder camera(path); }),
                  "expected that nobody else may write to the camera's folder, got " + place +
                      ", to which others may; chmod -R go-w " + path + " mends that, if what it holds can be trusted")
            << entry.label;
    }
}

TEST(CameraFolder, WithThingsOfSomebodyElseIsRefusedByName) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can give files away";
    }
    for (const char* place : {"front.lua", "root/tmp/planted"}) {
        const TestFolder folder;
        const fs::path path = folder.path() / "camera";
        { const desktop::CameraFolder camera(path); }
        writeFile(folder.path() / "victim", "kept");
        fs::create_symlink(folder.path() / "victim", path / place);
        ASSERT_EQ(lchown((path / place).c_str(), 65534, 65534), 0);
        EXPECT_EQ(
            errorOf([&] { const desktop::CameraFolder camera(path); }),
            "expected the camera's folder to belong to user 0, got " + (path / place).string() + " of user 65534");
    }
}

TEST(CameraFolder, BehindALinkIsWhereTheLinkLed) {
    const TestFolder folder;
    const fs::path link = folder.path() / "link";
    fs::create_directory(folder.path() / "camera");
    fs::permissions(folder.path() / "camera", fs::perms::owner_all);
    fs::create_directory_symlink(folder.path() / "camera", link);
    const desktop::CameraFolder camera(link);
    EXPECT_EQ(camera.path(), fs::canonical(folder.path() / "camera"));
}

TEST(CameraFolder, BehindALinkOfSomebodyElseIsRefusedByName) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can give links away";
    }
    const TestFolder folder;
    const fs::path link = folder.path() / "link";
    fs::create_directory(folder.path() / "camera");
    fs::permissions(folder.path() / "camera", fs::perms::owner_all);
    fs::create_directory_symlink(folder.path() / "camera", link);
    ASSERT_EQ(lchown(link.c_str(), 65534, 65534), 0);
    EXPECT_EQ(errorOf([&] { const desktop::CameraFolder camera(link); }),
              "expected the camera's folder to belong to user 0, got " + link.string() + " of user 65534");
    EXPECT_TRUE(fs::is_empty(folder.path() / "camera")) << "nothing was written into it";
}

TEST(CameraFolder, MayHoldLinksOfItsOwner) {
    const TestFolder folder;
    const fs::path path = folder.path() / "camera";
    { const desktop::CameraFolder camera(path); }
    fs::create_symlink("/dev/full", path / "events.jsonl");
    EXPECT_EQ(errorOf([&] { const desktop::CameraFolder camera(path); }), "nothing");
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

struct Choice {
    const char* name;
    const char* asked;
    std::vector<const char*> networks; /**< files that lie in the folder */
    bool folderGiven;
    const char* card;
};

class ChosenCards : public testing::TestWithParam<Choice> {};

TEST_P(ChosenCards, AreTheBestWhoseNetworksAreThere) {
    const TestFolder folder;
    for (const char* network : GetParam().networks) {
        writeFile(folder.path() / network, "network");
    }
    const desktop::ChosenCard chosen =
        desktop::chooseModelCard(GetParam().asked, GetParam().folderGiven ? folder.path().string() : "");
    EXPECT_EQ(chosen.card.stem(), GetParam().card);
    EXPECT_NE(chosen.reason, "");
}

INSTANTIATE_TEST_SUITE_P(
    ModelCards, ChosenCards,
    testing::Values(Choice{"NoFolder", "auto", {}, false, "motion"}, Choice{"EmptyFolder", "auto", {}, true, "motion"},
                    Choice{"All",
                           "auto",
                           {"FastestDet.onnx", "yolo-fastest-1.1-xl.cfg", "yolo-fastest-1.1-xl.weights",
                            "yolox_nano.onnx"},
                           true,
                           "fastestdet"},
                    Choice{"HalfANetwork", "auto", {"yolo-fastest-1.1-xl.cfg", "yolox_nano.onnx"}, true, "yolox-nano"},
                    Choice{"AnotherOne", "auto", {"yolov8n.onnx"}, true, "yolov8n"},
                    Choice{"Named", "motion", {"FastestDet.onnx"}, true, "motion"}),
    [](const auto& instance) { return instance.param.name; });

}  // namespace
