#include "config/parameter_controller.h"

#include <functional>

#include "store_fixture.h"

namespace {

using Lines = std::vector<std::string>;

// --- Texts and values ------------------------------------------------------------------------------------------------

struct IntegerCase {
    const char* text;
    int32_t value;
    bool isNumber;
};

class IntegerText : public Store, public testing::WithParamInterface<IntegerCase> {};

TEST_P(IntegerText, IsReadInBaseTen) {
    open();
    scripted::parameters()["N"] = GetParam().text;
    EXPECT_EQ(m_store.get_gint_parameter("N"), GetParam().value) << GetParam().text;
    const Lines expected = {std::string("get_gint_parameter: N is no number: \"") + GetParam().text + "\"; using 0"};
    EXPECT_EQ(LogCapture::ofLevel("error"), GetParam().isNumber ? Lines{} : expected);
    EXPECT_FALSE(scripted::storeReleased());
}

INSTANTIATE_TEST_SUITE_P(
    Table, IntegerText,
    testing::Values(IntegerCase{"0", 0, true}, IntegerCase{"42", 42, true}, IntegerCase{"-7", -7, true},
                    IntegerCase{"010", 10, true}, IntegerCase{"2147483647", 2147483647, true},
                    IntegerCase{"-2147483648", -2147483647 - 1, true}, IntegerCase{"4294967295", -1, true},
                    IntegerCase{"2147483648", -2147483647 - 1, true}, IntegerCase{"12 pixels", 12, true},
                    IntegerCase{"4294967296", 0, false}, IntegerCase{"-2147483649", 0, false},
                    IntegerCase{"99999999999999999999", 0, false}, IntegerCase{"", 0, false},
                    IntegerCase{"none", 0, false}),
    [](const auto& instance) { return "Case" + std::to_string(instance.index); });

struct FloatCase {
    const char* text;
    float value;
    bool isNumber;
};

class FloatText : public Store, public testing::WithParamInterface<FloatCase> {};

TEST_P(FloatText, IsRead) {
    open();
    scripted::parameters()["F"] = GetParam().text;
    EXPECT_EQ(m_store.get_gfloat_parameter("F"), GetParam().value) << GetParam().text;
    const Lines expected = {std::string("get_gfloat_parameter: F is no number: \"") + GetParam().text + "\"; using 0"};
    EXPECT_EQ(LogCapture::ofLevel("error"), GetParam().isNumber ? Lines{} : expected);
}

INSTANTIATE_TEST_SUITE_P(Table, FloatText,
                         testing::Values(FloatCase{"0.35", 0.35F, true}, FloatCase{"-1.5", -1.5F, true},
                                         FloatCase{"2", 2.0F, true}, FloatCase{"1e-2", 0.01F, true},
                                         FloatCase{"0.5 or so", 0.5F, true}, FloatCase{"", 0.0F, false},
                                         FloatCase{"high", 0.0F, false}),
                         [](const auto& instance) { return "Case" + std::to_string(instance.index); });

TEST_F(Store, OnlyTheWordTrueIsTrue) {
    open();
    for (const char* text : {"True", "TRUE", "yes", "1", "true ", " true", "", "false"}) {
        scripted::parameters()["B"] = text;
        EXPECT_FALSE(m_store.get_boolean_parameter("B")) << '"' << text << '"';
    }
    scripted::parameters()["B"] = "true";
    EXPECT_TRUE(m_store.get_boolean_parameter("B"));
    EXPECT_EQ(LogCapture::lines(), Lines{});
}

TEST_F(Store, ValuesAreWrittenAsTexts) {
    open();
    m_store.set_guint_parameter("A", 42);
    m_store.set_guint_parameter("B", static_cast<uint32_t>(-1));
    m_store.set_gfloat_parameter("C", 0.5F);
    m_store.set_gfloat_parameter("D", -2.25F);
    m_store.set_boolean_parameter("E", true);
    m_store.set_boolean_parameter("F", false);
    m_store.set_string_parameter("G", "any = text");
    m_store.set_string_parameter("H", "");
    EXPECT_EQ(scripted::parameterCalls(), (Lines{"set A=42", "set B=4294967295", "set C=0.500000", "set D=-2.250000",
                                                 "set E=true", "set F=false", "set G=any = text", "set H="}));
    EXPECT_EQ(m_store.get_gint_parameter("B"), -1) << "what was written for a negative number reads back as it";
    EXPECT_EQ(m_store.get_string_parameter("G"), "any = text");
    EXPECT_EQ(LogCapture::lines(), Lines{}) << "silent without the verbose log";
}

// --- The verbose log -------------------------------------------------------------------------------------------------

TEST_F(Store, TheVerboseLogTellsEveryReadAndWrite) {
    open();
    m_config.b_VerboseLog = true;
    scripted::parameters() = {{"N", "42"}, {"F", "0.5"}, {"B", "true"}, {"S", "text"}};
    m_store.get_gint_parameter("N");
    m_store.get_gfloat_parameter("F");
    m_store.get_boolean_parameter("B");
    m_store.get_string_parameter("S");
    m_store.set_guint_parameter("N", 7);
    m_store.set_gfloat_parameter("F", 1.5F);
    m_store.set_boolean_parameter("B", false);
    m_store.set_string_parameter("S", "other");
    EXPECT_EQ(
        LogCapture::lines(),
        (Lines{"info: get_gint_parameter: Retrieving N: 42", "info: get_gfloat_parameter: Retrieving F: 0.5",
               "info: get_boolean_parameter: Retrieving B: true", "info: get_string_parameter: Retrieving S: text",
               "info: set_guint_parameter: N saved with value 7",
               "info: set_gfloat_parameter: F saved with value 1.500000",
               "info: set_boolean_parameter: B saved with value false",
               "info: set_string_parameter: S saved with value other"}));
}

TEST_F(Store, ChangesAreLoggedOnlyWhenTheLogIsVerboseAtRegistration) {
    m_store.init_controller("ostrel_senvo");
    EXPECT_EQ(scripted::calls("ax_parameter_register_callback"), 0);
    m_config.b_VerboseLog = true;
    m_store.add_parameter("Late");
    EXPECT_EQ(scripted::calls("ax_parameter_register_callback"), 1);
    m_config.b_VerboseLog = false;
    forget();
    m_store.set_string_parameter("Late", "x");
    m_store.set_string_parameter("Sensitivity", "0.5");
    EXPECT_EQ(LogCapture::lines(), (Lines{"info: status_callback_log: Late has changed to x"}));
}

// --- Registration ----------------------------------------------------------------------------------------------------

TEST_F(Store, AParameterIsCreatedWithZero) {
    open();
    m_store.add_parameter("New");
    EXPECT_EQ(scripted::parameters().at("New"), "0");
    scripted::parameters()["New"] = "5";
    m_store.add_parameter("New");
    EXPECT_EQ(scripted::parameters().at("New"), "5") << "what is there stays";
    EXPECT_EQ(LogCapture::lines(), Lines{}) << "nothing to tell";
    EXPECT_FALSE(scripted::storeReleased());
}

TEST_F(Store, AParameterThatIsThereGetsItsCallback) {
    open();
    m_config.b_VerboseLog = true;
    scripted::parameters()["Old"] = "5";
    forget();
    m_store.add_parameter("Old");
    EXPECT_EQ(scripted::parameterCalls(), (Lines{"add Old", "callback Old"}));
}

TEST_F(Store, AFailedRegistrationReleasesTheStore) {
    open();
    scripted::failAt("ax_parameter_add", 1, {AX_PARAMETER_FILE_WRITE_ERROR, "read-only"});
    m_store.add_parameter("New");
    m_store.add_parameter("Next");
    EXPECT_EQ(LogCapture::ofLevel("error"), (Lines{"add_parameter: Failed to add parameter New. Error: read-only",
                                                   "add_parameter: Failed to add parameter Next. Error: N/A"}));
    EXPECT_TRUE(scripted::storeReleased());
    EXPECT_EQ(scripted::parameterCalls(), (Lines{"add New"})) << "the store is not asked again";
}

TEST_F(Store, AFailedCallbackIsToldAndBorne) {
    open();
    m_config.b_VerboseLog = true;
    scripted::failAt("ax_parameter_register_callback", 1, {AX_PARAMETER_CALLBACK_ERROR, "too many"});
    m_store.add_parameter("New");
    EXPECT_EQ(LogCapture::ofLevel("error"),
              (Lines{"add_parameter: Failed to register callback for parameter New. Error: too many"}));
    EXPECT_FALSE(scripted::storeReleased());
}

TEST_F(Store, ListsItsNames) {
    open();
    scripted::parameters() = {{"B", ""}, {"A", ""}, {"root.Image", ""}};
    m_store.list_params();
    EXPECT_EQ(LogCapture::lines(),
              (Lines{"info: list_params: Parameter in list: A", "info: list_params: Parameter in list: B"}));
    scripted::failAt("ax_parameter_list", 1, {});
    forget();
    m_store.list_params();
    EXPECT_EQ(LogCapture::ofLevel("info"), Lines{});
}

// --- Failures --------------------------------------------------------------------------------------------------------

struct OperationCase {
    const char* call;
    const char* line;
    std::function<void(parameter_controller&)> run;
};

class FailedOperation : public Store, public testing::WithParamInterface<OperationCase> {};

TEST_P(FailedOperation, ReleasesTheStoreAndLaterOnesAreSafe) {
    open();
    scripted::parameters()["P"] = "true";
    scripted::failAt(GetParam().call, 1, {AX_PARAMETER_PARAM_GET_ERROR, "broken"});
    GetParam().run(m_store);
    EXPECT_EQ(LogCapture::ofLevel("error"), (Lines{GetParam().line}));
    EXPECT_TRUE(scripted::storeReleased());
    forget();
    EXPECT_EQ(m_store.get_gint_parameter("P"), 0);
    EXPECT_EQ(m_store.get_gfloat_parameter("P"), 0.0F);
    EXPECT_FALSE(m_store.get_boolean_parameter("P"));
    EXPECT_EQ(m_store.get_string_parameter("P"), "");
    m_store.set_guint_parameter("P", 1);
    m_store.set_gfloat_parameter("P", 1);
    m_store.set_boolean_parameter("P", true);
    m_store.set_string_parameter("P", "x");
    m_store.list_params();
    EXPECT_EQ(
        LogCapture::lines(),
        (Lines{"error: get_gint_parameter: Failed to get P", "error: get_gfloat_parameter: Failed to get P",
               "error: get_boolean_parameter: Failed to get P",
               "error: get_string_parameter: Failed to get string parameter P",
               "error: set_guint_parameter: Failed to save P", "error: set_gfloat_parameter: Failed to save P",
               "error: set_boolean_parameter: Failed to save P", "error: set_string_parameter: Failed to save P"}));
    EXPECT_EQ(scripted::parameterCalls(), Lines{}) << "the store is not asked again";
    EXPECT_EQ(scripted::parameters().at("P"), "true");
    EXPECT_EQ(scripted::calls("ax_parameter_free"), 1) << "released once";
    EXPECT_EQ(scripted::calls("ax_parameter_new"), 1) << "not opened again";
}

INSTANTIATE_TEST_SUITE_P(
    Table, FailedOperation,
    testing::Values(OperationCase{"ax_parameter_get", "get_gint_parameter: Failed to get P",
                                  [](parameter_controller& store) { EXPECT_EQ(store.get_gint_parameter("P"), 0); }},
                    OperationCase{"ax_parameter_get", "get_gfloat_parameter: Failed to get P",
                                  [](parameter_controller& store) { EXPECT_EQ(store.get_gfloat_parameter("P"), 0); }},
                    OperationCase{"ax_parameter_get", "get_boolean_parameter: Failed to get P",
                                  [](parameter_controller& store) { EXPECT_FALSE(store.get_boolean_parameter("P")); }},
                    OperationCase{"ax_parameter_get", "get_string_parameter: Failed to get string parameter P",
                                  [](parameter_controller& store) { EXPECT_EQ(store.get_string_parameter("P"), ""); }},
                    OperationCase{"ax_parameter_set", "set_guint_parameter: Failed to save P",
                                  [](parameter_controller& store) { store.set_guint_parameter("P", 1); }},
                    OperationCase{"ax_parameter_set", "set_gfloat_parameter: Failed to save P",
                                  [](parameter_controller& store) { store.set_gfloat_parameter("P", 1); }},
                    OperationCase{"ax_parameter_set", "set_boolean_parameter: Failed to save P",
                                  [](parameter_controller& store) { store.set_boolean_parameter("P", false); }},
                    OperationCase{"ax_parameter_set", "set_string_parameter: Failed to save P",
                                  [](parameter_controller& store) { store.set_string_parameter("P", "x"); }}),
    [](const auto& instance) { return "Case" + std::to_string(instance.index); });

TEST_F(Store, AStoreThatCannotBeOpenedIsToldAndSurvived) {
    scripted::failAt("ax_parameter_new", 1, {AX_PARAMETER_FILE_FORMAT_ERROR, "torn"});
    m_store.init_controller("ostrel_senvo");
    const Lines errors = LogCapture::ofLevel("error");
    ASSERT_EQ(errors.size(), 3 + parameterTable().size());
    EXPECT_EQ(errors[0], "init_controller: Error Initializing Parameter of ostrel_senvo");
    EXPECT_EQ(errors[1], "find_rotation_parameter: ERROR ax_parameter_get N/A");
    EXPECT_EQ(errors[2], "find_rotation_parameter: Unknown rotation value");
    EXPECT_EQ(errors[3], "add_parameter: Failed to add parameter HStream. Error: N/A");
    EXPECT_EQ(m_store.get_rotation(), 0);
    EXPECT_EQ(m_store.get_sensor_aspect_ratio(), "16:9");
    EXPECT_EQ(m_store.load_config_params().i_ModelWidth, 0U);
}

// --- The platform's own parameters -----------------------------------------------------------------------------------

struct RotationCase {
    const char* text;
    int32_t degrees;
};

class Rotation : public Store, public testing::WithParamInterface<RotationCase> {};

TEST_P(Rotation, IsReadAtTheStart) {
    scripted::parameters()["root.Image.I0.Appearance.Rotation"] = GetParam().text;
    m_store.init_controller("ostrel_senvo");
    EXPECT_EQ(m_store.get_rotation(), GetParam().degrees);
    EXPECT_EQ(LogCapture::lines(),
              (Lines{std::string("info: find_rotation_parameter: The value of rotation is ") + GetParam().text}));
}

INSTANTIATE_TEST_SUITE_P(Table, Rotation,
                         testing::Values(RotationCase{"0", 0}, RotationCase{"90", 90}, RotationCase{"270", 270},
                                         RotationCase{"upright", 0}),
                         [](const auto& instance) { return "Case" + std::to_string(instance.index); });

TEST_F(Store, TheRotationIsToldTwiceWhenTheLogIsVerbose) {
    open();
    m_config.b_VerboseLog = true;
    scripted::parameters()["root.Image.I0.Appearance.Rotation"] = "90";
    EXPECT_EQ(m_store.find_rotation_parameter("ostrel_senvo"), 90);
    EXPECT_EQ(LogCapture::lines(), (Lines{"info: find_rotation_parameter: The value of rotation is 90",
                                          "info: find_rotation_parameter: About to return rotation number: 90"}));
}

TEST_F(Store, AnUnreadableRotationIsNone) {
    scripted::failAt("ax_parameter_get", 1, {AX_PARAMETER_PARAM_GET_ERROR, "broken"});
    m_store.init_controller("ostrel_senvo");
    EXPECT_EQ(m_store.get_rotation(), 0);
    const Lines errors = LogCapture::ofLevel("error");
    ASSERT_GE(errors.size(), 1U);
    EXPECT_EQ(errors[0], "find_rotation_parameter: ERROR ax_parameter_get broken");
    EXPECT_FALSE(scripted::storeReleased()) << "not one of the application's own parameters";
}

TEST_F(Store, TheAspectRatioIsHandedOnAsItIs) {
    open();
    for (const char* ratio : {"16:9", "4:3", "1:1"}) {
        scripted::parameters()["root.ImageSource.I0.Sensor.AspectRatio"] = ratio;
        EXPECT_EQ(m_store.get_sensor_aspect_ratio(), ratio);
    }
    EXPECT_EQ(LogCapture::lines(), Lines{});
}

TEST_F(Store, AnUnreadableAspectRatioIsTakenForWide) {
    open();
    scripted::parameters()["root.ImageSource.I0.Sensor.AspectRatio"] = "4:3";
    scripted::failAt("ax_parameter_get", 1, {AX_PARAMETER_PARAM_GET_ERROR, "broken"});
    EXPECT_EQ(m_store.get_sensor_aspect_ratio(), "16:9");
    EXPECT_EQ(LogCapture::lines(),
              (Lines{"error: get_sensor_aspect_ratio: ERROR ax_parameter_get broken. Assuming 16:9."}));
    EXPECT_EQ(m_store.get_sensor_aspect_ratio(), "4:3") << "the store was not released";
}

}  // namespace
