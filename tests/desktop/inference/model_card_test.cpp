#include "desktop/inference/engine/model_card.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <stdexcept>

#include "this_build.h"

namespace desktop {
namespace {

std::string messageOf(const std::string& json) {
    try {
        parseModelCard(json);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "(accepted)";
}

std::string networkCard(const std::string& replacedKey, const std::string& value) {
    std::string card = "{\"engine\":\"opencv-dnn\"";
    const std::vector<std::pair<std::string, std::string>> keys = {{"network", R"(["a.onnx"])"},
                                                                   {"input", R"({"width":320,"height":320})"},
                                                                   {"decoder", R"("yolov5")"},
                                                                   {"classes", R"({"0":"Person"})"}};
    bool replaced = false;
    for (const auto& [key, usual] : keys) {
        replaced = replaced || key == replacedKey;
        const std::string used = key == replacedKey ? value : usual;
        if (!used.empty()) {
            card.append(",\"").append(key).append("\":").append(used);
        }
    }
    return card + (replaced || replacedKey.empty() ? "" : ",\"" + replacedKey + "\":" + value) + "}";
}

struct BadCard {
    const char* name;
    std::string card;
    const char* message;
};

class BadCards : public testing::TestWithParam<BadCard> {};

TEST_P(BadCards, AreRefusedSayingWhatWasExpectedAndWhatCame) {
    EXPECT_EQ(messageOf(GetParam().card), GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(
    ModelCard, BadCards,
    testing::Values(
        BadCard{"NotJson", "TFL3", "expected a model card in JSON, got \"TFL3\""},
        BadCard{"NotAnObject", "[1]", "expected a JSON object, got [1]"},
        BadCard{"NoEngine", "{}", "\"engine\" is missing"},
        BadCard{"UnknownEngine", R"({"engine":"tpu"})", R"("engine": expected one of opencv-dnn, motion, got "tpu")"},
        BadCard{"UnknownKey", R"({"engine":"motion","tensr":{}})",
                R"(unknown key "tensr"; known: name, engine, steady, tensor, motion)"},
        BadCard{"KeyOfTheOtherEngine", R"({"engine":"motion","decoder":"ssd"})",
                R"(unknown key "decoder"; known: name, engine, steady, tensor, motion)"},
        BadCard{"NameNotText", R"({"engine":"motion","name":7})", "\"name\": expected a text, got 7"},
        BadCard{"TensorTooSmall", R"({"engine":"motion","tensor":{"width":8}})",
                "\"tensor.width\": expected a whole number from 64 to 4096, got 8"},
        BadCard{"TensorNotWhole", R"({"engine":"motion","tensor":{"height":540.5}})",
                "\"tensor.height\": expected a whole number from 64 to 4096, got 540.5"},
        BadCard{"UnknownMotionKey", R"({"engine":"motion","motion":{"speed":1}})",
                R"(unknown key "motion.speed"; known: contrast, smallestArea, absorbCycles, shadows, classes)"},
        BadCard{"ShadowsNotBool", R"({"engine":"motion","motion":{"shadows":1}})",
                "\"motion.shadows\": expected true or false, got 1"},
        BadCard{"NoMotionClasses", R"({"engine":"motion","motion":{"classes":[]}})",
                "\"motion.classes\": expected a list of class names, got []"},
        BadCard{"ContrastTooLow", R"({"engine":"motion","motion":{"contrast":1}})",
                "\"motion.contrast\": expected a number from 2.0 to 128.0, got 1"},
        BadCard{"NoNetwork", networkCard("network", ""), "\"network\" is missing"},
        BadCard{"EmptyNetwork", networkCard("network", "[]"),
                "\"network\": expected a list of one or two file names, got []"},
        BadCard{"NoInputSize", networkCard("input", R"({"width":320})"),
                R"("input": expected "width" and "height" of the network's input, got {"width":320})"},
        BadCard{"BadOrder", networkCard("input", R"({"width":320,"height":320,"order":"GBR"})"),
                R"("input.order": expected one of RGB, BGR, got "GBR")"},
        BadCard{"BadFit", networkCard("input", R"({"width":320,"height":320,"fit":"crop"})"),
                R"("input.fit": expected one of stretch, letterbox, got "crop")"},
        BadCard{"BadMean", networkCard("input", R"({"width":320,"height":320,"mean":[1,2]})"),
                "\"input.mean\": expected a list of three numbers, got [1,2]"},
        BadCard{"UnknownDecoder", networkCard("decoder", "\"yolo9000\""),
                "\"decoder\": expected one of yolo-darknet, yolov5, yolov8, yolox, ssd, fastestdet, got \"yolo9000\""},
        BadCard{
            "UnknownClass", networkCard("classes", R"({"0":"Dog"})"),
            "\"classes.0\": expected one of Person, Bicycle, Car, Motorcycle, Airplane, Bus, Train, Truck, Boat, got "
            "\"Dog\""},
        BadCard{"ClassIndexNotNumber", networkCard("classes", R"({"first":"Person"})"),
                "\"classes\": expected class indices of the network as keys, got \"first\""},
        BadCard{"ThresholdTooHigh", networkCard("threshold", "1.5"),
                "\"threshold\": expected a number from 0.0 to 1.0, got 1.5"},
        BadCard{"OverlapNotNumber", networkCard("nms", "\"some\""),
                "\"nms\": expected a number from 0.0 to 1.0, got \"some\""}),
    [](const auto& instance) { return instance.param.name; });

TEST(ModelCard, HasTheDocumentedDefaults) {
    const ModelCard motion = parseModelCard(R"({"engine":"motion"})");
    EXPECT_EQ(motion.tensorWidth, 960);
    EXPECT_EQ(motion.tensorHeight, 540);
    const NetworkCard network = parseModelCard(networkCard("", "")).network;
    EXPECT_FLOAT_EQ(network.threshold, 0.05F);
    EXPECT_FLOAT_EQ(network.overlap, 0.5F);
    EXPECT_FALSE(network.swapToBgr);
    EXPECT_EQ(network.fit, Fit::Stretch);
}

TEST(ModelCard, MapsTheNetworksClassesToOurs) {
    const ModelCard card = parseModelCard(networkCard("classes", R"({"1":"Person","12":"Boat"})"));
    EXPECT_EQ(card.network.classes, (std::map<int, ObjectClass>{{1, ObjectClass::Person}, {12, ObjectClass::Boat}}));
}

TEST(ModelCard, ShippedCardsAreAccepted) {
    int cards = 0;
    for (const auto& entry : std::filesystem::directory_iterator(this_build::checkout() / "package/models")) {
        std::ifstream file(entry.path());
        std::stringstream text;
        text << file.rdbuf();
        EXPECT_NO_THROW(parseModelCard(text.str())) << entry.path();
        ++cards;
    }
    EXPECT_GE(cards, 3);
}

}  // namespace
TEST(ModelCard, SaysWhetherWhatIsFoundIsSteadied) {
    EXPECT_TRUE(parseModelCard(R"({"engine": "motion"})").steady);
    EXPECT_FALSE(parseModelCard(R"({"engine": "motion", "steady": false})").steady);
}

}  // namespace desktop
