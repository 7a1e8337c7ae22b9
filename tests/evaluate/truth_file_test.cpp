#include "evaluate/truth_file.h"

#include <gtest/gtest.h>

#include "program.h"
#include "test_folder.h"

namespace {

template <typename Call>
std::string errorOf(Call call) {
    try {
        call();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "nothing";
}

class TruthFile : public testing::Test {
protected:
    Truth read(const std::string& text) const {
        writeFile(m_path, text);
        return readTruthFile(m_path);
    }

    TestFolder m_folder;
    std::string m_path = m_folder.path() / "truth.json";
};

TEST_F(TruthFile, IsRead) {
    const Truth truth = read(R"({"clip": "a.mp4", "sha256": "ab", "settings": {"classes": ["Car"]},
        "expected": {"entrance2": {"Car": {"enter": 2, "exit": 1}}, "occupancy_at_end": 1, "area1_alert_starts": 3,
                     "area1_alert_stops": 2, "tolerance_seconds": 1.0}})");
    EXPECT_EQ(truth.clip, "a.mp4");
    EXPECT_EQ(truth.sha256, "ab");
    EXPECT_EQ(truth.settings.classes, (std::vector<std::string>{"Car"}));
    EXPECT_TRUE(truth.entrances[0].empty());
    EXPECT_EQ(truth.entrances[1], (EntranceCounts{{"Car", {2, 1}}}));
    EXPECT_EQ(truth.occupancyAtEnd, 1);
    EXPECT_EQ(truth.alertStarts, (std::map<std::string, int>{{"area1", 3}}));
    EXPECT_EQ(truth.alertStops, (std::map<std::string, int>{{"area1", 2}}));
}

struct TruthCase {
    const char* label;
    const char* text;
    const char* error;
};

class BadTruth : public TruthFile, public testing::WithParamInterface<TruthCase> {};

TEST_P(BadTruth, IsRefusedWithWhatWasExpected) {
    EXPECT_EQ(errorOf([&] { read(GetParam().text); }), m_path + ": " + GetParam().error) << GetParam().label;
}

INSTANTIATE_TEST_SUITE_P(
    Table, BadTruth,
    testing::Values(
        TruthCase{"no JSON", "truth", "expected a JSON object"}, TruthCase{"a list", "[]", "expected a JSON object"},
        TruthCase{"no clip", "{}", "expected a key \"clip\""},
        TruthCase{"no settings", R"({"clip": "a"})", "expected a key \"settings\""},
        TruthCase{"no answers", R"({"clip": "a", "settings": {}})", "expected a key \"expected\""},
        TruthCase{"bad settings", R"({"clip": "a", "settings": {"sensitivity": 7}, "expected": {}})",
                  "\"sensitivity\": expected a number from 0 to 1, got 7"},
        TruthCase{"unknown answer", R"({"clip": "a", "settings": {}, "expected": {"entrance4": {}}})",
                  "\"expected\": unknown key \"entrance4\""},
        TruthCase{"no exits", R"({"clip": "a", "settings": {}, "expected": {"entrance1": {"Car": {"enter": 1}}}})",
                  "expected a key \"exit\""},
        TruthCase{"a count alone", R"({"clip": "a", "settings": {}, "expected": {"entrance1": {"Car": 1}}})",
                  "\"entrance1\": expected \"enter\" and \"exit\" for Car, got 1"},
        TruthCase{"half an occupant", R"({"clip": "a", "settings": {}, "expected": {"occupancy_at_end": 0.5}})",
                  "\"occupancy_at_end\": expected a whole number, got 0.5"},
        TruthCase{"negative starts", R"({"clip": "a", "settings": {}, "expected": {"area1_alert_starts": -1}})",
                  "\"area1_alert_starts\": expected a whole number, got -1"}),
    [](const auto& instance) { return "Case" + std::to_string(instance.index); });

TEST_F(TruthFile, ThatIsMissingIsNamed) {
    EXPECT_EQ(errorOf([] { readTruthFile("/missing/truth.json"); }), "cannot read the truth file /missing/truth.json");
}

TEST_F(TruthFile, IsHeldToItsClip) {
    const std::string clip = m_folder.path() / "clip.mp4";
    writeFile(clip, "abc");
    // The published checksum of these three letters.
    const std::string checksum = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
    Truth truth;
    truth.clip = "clip.mp4";
    truth.sha256 = checksum;
    EXPECT_EQ(errorOf([&] { checkTruthIsOf(truth, clip); }), "nothing");
    truth.sha256 = "00";
    EXPECT_EQ(
        errorOf([&] { checkTruthIsOf(truth, clip); }),
        "the truth is of another clip: expected clip.mp4 with sha256 00, got " + clip + " with sha256 " + checksum);
    EXPECT_EQ(errorOf([&] { checkTruthIsOf(truth, "/missing.mp4"); }), "cannot read /missing.mp4");
}

TEST_F(TruthFile, OfASceneIsHeldToItsName) {
    Truth truth;
    truth.clip = "scene:plaza";
    EXPECT_EQ(errorOf([&] { checkTruthIsOf(truth, "scene:plaza"); }), "nothing");
    EXPECT_EQ(errorOf([&] { checkTruthIsOf(truth, "scene:hall"); }),
              "the truth is of another clip: expected scene:plaza, got scene:hall");
}

}  // namespace
