#include "web/parameter_io.h"

#include <stdexcept>

#include "settings_fixture.h"

namespace {

using Tags = std::map<std::string, std::string>;
using Texts = std::vector<std::string>;

/** The names of the elements of a document, in its order. */
Texts elementsOf(const std::string& document) {
    Texts names;
    for (size_t open = document.find('<'); open != std::string::npos; open = document.find('<', open + 1)) {
        if (document[open + 1] != '/') {
            names.push_back(document.substr(open + 1, document.find('>', open) - open - 1));
        }
    }
    return names;
}

class Settings : public SettingsFixture {};

// --- The tag parser --------------------------------------------------------------------------------------------------

TEST(TagParser, ReadsTagsBetweenTheRoots) {
    const struct {
        const char* label;
        std::string body;
        Tags tags;
    } cases[] = {
        {"two tags", "<root><a>1</a><b>x y</b></root>", {{"a", "1"}, {"b", "x y"}}},
        {"text around", "junk<q>9</q><root><a>1</a></root><b>2</b>", {{"a", "1"}}},
        {"repeated", "<root><a>1</a><a>2</a></root>", {{"a", "2"}}},
        {"empty value", "<root><a></a></root>", {{"a", ""}}},
        {"nested", "<root><a><b>1</b></a></root>", {{"a", ""}, {"b", "1"}}},
        {"attributes belong to the name", "<root><a b=\"c\">1</a></root>", {{"a b=\"c\"", "1"}}},
        {"entities stay", "<root><a>&lt;&amp;</a></root>", {{"a", "&lt;&amp;"}}},
        {"no end", "<root><a>1</a><b>2", {{"a", "1"}, {"b", "2"}}},
        {"a tag that does not end", "<root><a>1</a><b", {{"a", "1"}}},
        {"NUL bytes", std::string("<root><a>1\0002</a></root>", 23), {{"a", std::string("1\0002", 3)}}},
        {"no root: from the sixth character", "12345<a>1</a>", {{"a", "1"}}},
        {"no root: the first five are skipped", "<aa>1<b>2</b>", {{"b", "2"}}},
        {"only roots", "<root></root>", {}},
        {"nothing", "", {}},
        {"less than five", "<a>", {}},
        {"words", "no tags in here", {}},
    };
    for (const auto& [label, text, tags] : cases) {
        EXPECT_EQ(parameter_io::parseXMLData_no_dependency(text), tags) << label;
    }
}

// --- Download --------------------------------------------------------------------------------------------------------

TEST_F(Settings, AreOneDocumentInAFixedOrder) {
    EXPECT_EQ(elementsOf(m_settings.get_parameters()), elementsInOrder());
}

TEST_F(Settings, AreElementsWithNothingBetween) {
    const std::string document = m_settings.get_parameters();
    EXPECT_EQ(document.rfind("<app><MinNumberOfPeopleForTrigger>1</MinNumberOfPeopleForTrigger><Sensitivity>", 0), 0U);
    EXPECT_TRUE(document.ends_with("<CamName></CamName></app>"));
    EXPECT_NE(document.find("</FO10_IP><RepInt>"), std::string::npos);
    EXPECT_EQ(document.find('\n'), std::string::npos);
}

TEST_F(Settings, ShowTheRecord) {
    m_config.f_Sensitivity = 0.35F;
    m_config.i_MaxDisappeared = 10;
    m_config.b_IsSnap = true;
    m_config.e_AoiLogicComparison = logicComparison::exactly;
    m_config.i_Detection2[0] = 480;
    m_config.i_Detection2[1] = 270;
    m_config.i_Occupancy3[14] = 960;
    m_config.i_Occupancy3[15] = 540;
    m_config.cameraInfo.thisCameraName = "a<b>&\"c";
    m_settings.CameraResolutionsAsCsv = "640x360,1280x720,";
    const std::string document = m_settings.get_parameters();
    for (const std::string element :
         {"<Sensitivity>0.350000</Sensitivity>", "<MaxDisappear>2</MaxDisappear>", "<IsSnap>1</IsSnap>",
          "<LocatorAtBottom>0</LocatorAtBottom>", "<Detection2_0>0.500000</Detection2_0>",
          "<Detection2_1>0.500000</Detection2_1>", "<Entrance3_14>1.000000</Entrance3_14>",
          "<Entrance3_15>1.000000</Entrance3_15>", "<CamName>a<b>&\"c</CamName>",
          "<CamsResAsCsv>640x360,1280x720,</CamsResAsCsv>"}) {
        EXPECT_NE(document.find(element), std::string::npos) << element;
    }
    EXPECT_NE(document.find("<AoiLogicComparison>" + std::to_string(static_cast<int>(logicComparison::exactly)) +
                            "</AoiLogicComparison>"),
              std::string::npos);
}

// --- Upload ----------------------------------------------------------------------------------------------------------

TEST_F(Settings, OfAnUploadReachTheRecordTheAnalysisAndTheStore) {
    upload(everything());
    EXPECT_EQ(m_config.i_MinNumberOfPeopleForTrigger, 3);
    EXPECT_FLOAT_EQ(m_config.f_Sensitivity, 0.75F);
    EXPECT_EQ(m_config.i_MaxDisappeared, 15) << "3 s of 5 cycles";
    EXPECT_EQ(m_config.i_WStream, 960);
    EXPECT_EQ(m_config.i_HStream, 540);
    EXPECT_EQ(m_config.i_Detection3[4], 240);
    EXPECT_EQ(m_config.i_Detection3[5], 135);
    EXPECT_EQ(m_config.i_Occupancy1[15], 135);
    EXPECT_TRUE(m_config.b_Occupancy3Active);
    EXPECT_EQ(m_config.str_OccupancyAutoResetTime, "23:55");
    EXPECT_EQ(m_config.cameraInfo.followerIPAddress[9], "10.0.0.10");
    EXPECT_EQ(m_config.cameraInfo.i_PeriodTime, 3);
    EXPECT_EQ(m_config.cameraInfo.thisCameraName, "Main & hall");

    ASSERT_EQ(m_published.size(), 1U);
    const SettingsUpdate& update = m_published[0];
    EXPECT_TRUE(update.overlays && update.maxDisappeared && update.detectionAreas && update.exclusions &&
                update.entrances);
    EXPECT_EQ(update.settings.i_Detection3, m_config.i_Detection3);

    EXPECT_EQ(scripted::parameters()["Sensitivity"], "0.750000");
    EXPECT_EQ(scripted::parameters()["Detection32x"], "240");
    EXPECT_EQ(scripted::parameters()["MaxDisappeared"], "15");
    EXPECT_EQ(scripted::parameters()["Follower10IP"], "10.0.0.10");
    EXPECT_EQ(scripted::parameters()["ThisDeviceCameraName"], "Main & hall");
    EXPECT_EQ(scripted::parameters()["WStream"], "960");
}

/** The analysis must not wait for a slow store; whoever uploads is answered when all is stored. */
TEST_F(Settings, OfAnUploadActBeforeTheyAreStored) {
    std::string whenPublished;
    m_onPublished = [&] { whenPublished = scripted::parameters()["Sensitivity"]; };
    upload(everything());
    EXPECT_EQ(whenPublished, "0") << "not yet stored";
    EXPECT_EQ(scripted::parameters()["Sensitivity"], "0.750000") << "stored once the upload is answered";
}

TEST_F(Settings, ComeBackAsTheyWereSent) {
    const Tags sent = everything();
    upload(sent);
    Tags came = document();
    for (const auto& [tag, value] : sent) {
        const bool fraction = value == "0.25" || tag == "Sensitivity";
        EXPECT_EQ(came[tag], fraction ? (value + "000000").substr(0, 8) : value) << tag;
    }
}

TEST_F(Settings, SurviveADownloadAndAnUpload) {
    upload(everything());
    int32_t pixel = 1;
    for (auto* area : {&m_config.i_Detection1, &m_config.i_Detection2, &m_config.i_Detection3, &m_config.i_Occupancy1,
                       &m_config.i_Occupancy2, &m_config.i_Occupancy3}) {
        for (int32_t& coordinate : *area) {
            coordinate = pixel = (pixel * 31 + 7) % 541;
        }
    }
    m_config.i_MaxDisappeared = 13;
    m_config.cameraInfo.thisCameraName = "Hall";
    const ConfigParams before = m_config;
    Tags tags = document();
    upload(tags);
    EXPECT_EQ(m_config.i_Detection1, before.i_Detection1);
    EXPECT_EQ(m_config.i_Detection2, before.i_Detection2);
    EXPECT_EQ(m_config.i_Detection3, before.i_Detection3);
    EXPECT_EQ(m_config.i_Occupancy1, before.i_Occupancy1);
    EXPECT_EQ(m_config.i_Occupancy2, before.i_Occupancy2);
    EXPECT_EQ(m_config.i_Occupancy3, before.i_Occupancy3);
    EXPECT_EQ(m_config.i_MaxDisappeared, 13);
    EXPECT_EQ(document(), tags);
}

TEST_F(Settings, TakeAFlagForSetExactlyWhenItIsOne) {
    Tags tags = everything();
    for (const char* value : {"true", "0", "", "01", "1 ", "yes"}) {
        tags["DetectCars"] = value;
        upload(tags);
        EXPECT_FALSE(m_config.b_DetectCars) << value;
    }
    tags["DetectCars"] = "1";
    upload(tags);
    EXPECT_TRUE(m_config.b_DetectCars);
}

TEST_F(Settings, AreUntouchedByABodyWithoutTags) {
    const std::string before = m_settings.get_parameters();
    for (const char* text : {"", "nonsense", "<root></root>"}) {
        applicationLog().clear();
        EXPECT_EQ(m_settings.set_post_parameters(text), -1) << text;
        EXPECT_EQ(LogCapture::ofLevel("error"), Texts{"set_post_parameters: Failed to parse XML payload"});
    }
    EXPECT_EQ(m_settings.get_parameters(), before);
    EXPECT_TRUE(m_published.empty());
}

TEST_F(Settings, ThatAreRefusedLeaveWhatWasReadUntilThen) {
    const struct {
        const char* tag;
        const char* value;
        bool overlays;
        bool maxDisappeared;
        bool detectionAreas;
        bool exclusions;
        bool entrances;
    } cases[] = {
        {"Sensitivity", "high", false, false, false, false, false},
        {"AoiLogicComparison", "more", false, false, false, false, false},
        {"MaxDisappear", "", true, false, false, false, false},
        {"Detection2_7", "left", true, true, false, false, false},
        {"Exclusion1_0", "", true, true, true, false, false},
        {"Entrance3_15", "1e30", true, true, true, true, false},
        {"Occupants", "many", true, true, true, true, true},
        {"RepInt", "99999999999", true, true, true, true, true},
    };
    for (const auto& refused : cases) {
        m_config = everyClass();
        m_config.i_MainLoopTime = 200;
        m_published.clear();
        scripted::parameters().clear();
        Tags tags = everything();
        tags[refused.tag] = refused.value;
        applicationLog().clear();
        EXPECT_ANY_THROW(m_settings.set_post_parameters(body(tags))) << refused.tag;
        EXPECT_EQ(LogCapture::ofLevel("error"),
                  Texts{std::string("set_post_parameters: Expected a number that can be stored in ") + refused.tag +
                        ", got \"" + refused.value + "\""});
        EXPECT_TRUE(scripted::parameters().empty()) << refused.tag;
        ASSERT_EQ(m_published.size(), 1U) << refused.tag;
        EXPECT_EQ(m_published[0].overlays, refused.overlays) << refused.tag;
        EXPECT_EQ(m_published[0].maxDisappeared, refused.maxDisappeared) << refused.tag;
        EXPECT_EQ(m_published[0].detectionAreas, refused.detectionAreas) << refused.tag;
        EXPECT_EQ(m_published[0].exclusions, refused.exclusions) << refused.tag;
        EXPECT_EQ(m_published[0].entrances, refused.entrances) << refused.tag;
        EXPECT_EQ(m_published[0].settings.i_MinNumberOfPeopleForTrigger, 3) << refused.tag;
        EXPECT_EQ(m_published[0].settings.i_Occupancy3[0], refused.entrances ? 240 : 0) << refused.tag;
    }
}

TEST_F(Settings, ThatLackATagAreRefused) {
    Tags tags = everything();
    tags.erase("Detection1_3");
    EXPECT_THROW(m_settings.set_post_parameters(body(tags)), std::invalid_argument);
}

TEST_F(Settings, CannotBeUploadedWithoutAnAnalysisPeriod) {
    m_config.i_MainLoopTime = 0;
    EXPECT_THROW(m_settings.set_post_parameters(body(everything())), std::domain_error);
    EXPECT_EQ(document()["MaxDisappear"], "0");
}

// --- The data panel --------------------------------------------------------------------------------------------------

TEST(StatusText, IsThatOfTheCode) {
    const std::map<int, std::string> texts = {
        {50, "Unknown status"},
        {100, "Starting"},
        {200, "Running"},
        {300, "Stopped"},
        {400, "Data error"},
        {401, "AI error"},
        {402, "Locations error"},
        {403, "AOI error"},
        {405, "Findings error"},
        {406, "Events error"},
        {500, "Area event active"},
        {501, "Occupancy event active"},
        {502, "Area 1 event active"},
        {503, "Area 2 event active"},
        {504, "Area 3 event active"},
        {600, "Slow"},
        {700, "No connection error"},
    };
    for (int code = -1; code <= 1000; ++code) {
        const auto known = texts.find(code);
        EXPECT_EQ(parameter_io::status_to_string(code), known == texts.end() ? "Unknown default status" : known->second)
            << code;
    }
}

TEST_F(Settings, ShowThisCameraAndItsFollowersSideBySide) {
    m_leaderMetrics.totalOccupancy = 12;
    m_config.i_MinOccupantsForTrigger = 40;
    m_config.cameraInfo.thisCameraName = "<Hall>";
    m_config.cameraInfo.followerCameraName[0] = "Gate";
    m_config.cameraInfo.followerCameraName[9] = "Door";
    m_config.cameraInfo.followerActive[9] = true;
    m_metrics.crowdCount1 = 1;
    m_metrics.crowdCount2 = 2;
    m_metrics.crowdCount3 = 4;
    m_leaderMetrics.followerCrowdCount[1] = -1;
    m_leaderMetrics.followerStatus[1] = 700;
    m_leaderMetrics.followerStatus[2] = 200;
    m_status = 501;
    std::string expected = "<app><TotalOcc>12</TotalOcc><Occupants>40</Occupants>";
    const auto add = [&](const std::string& name, const Texts& values) {
        for (size_t i = 0; i < values.size(); ++i) {
            const std::string tag = name + "_" + std::to_string(i);
            expected += "<" + tag + ">" + values[i] + "</" + tag + ">";
        }
    };
    add("NameCam", {"<Hall>", "Gate", "", "", "", "", "", "", "", "", "Door"});
    add("AOICam", {"7", "0", "-1", "0", "0", "0", "0", "0", "0", "0", "0"});
    add("ActiveCam", {"0", "0", "0", "0", "0", "0", "0", "0", "0", "0", "1"});
    Texts statuses(11, "Unknown default status");
    statuses[0] = "Occupancy event active";
    statuses[2] = "No connection error";
    statuses[3] = "Running";
    add("StatusCam", statuses);
    EXPECT_EQ(m_settings.get_data_panel_info(), expected + "</app>");
}

TEST_F(Settings, ShowThisCameraActiveWithAnyDetectionArea) {
    m_config.b_Occupancy1Active = m_config.b_Exclusion1Active = true;
    EXPECT_NE(m_settings.get_data_panel_info().find("<ActiveCam_0>0<"), std::string::npos);
    for (bool ConfigParams::*area :
         {&ConfigParams::b_Detection1Active, &ConfigParams::b_Detection2Active, &ConfigParams::b_Detection3Active}) {
        m_config.*area = true;
        EXPECT_NE(m_settings.get_data_panel_info().find("<ActiveCam_0>1<"), std::string::npos);
        m_config.*area = false;
    }
}

}  // namespace
