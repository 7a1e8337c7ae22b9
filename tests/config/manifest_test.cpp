#include <cmath>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>

#include "config/config_params.h"
#include "this_build.h"

namespace {

std::string typeName(ParameterType type) {
    switch (type) {
        case ParameterType::Integer:
            return "integer";
        case ParameterType::Bool:
            return "bool";
        case ParameterType::Float:
            return "float";
        case ParameterType::String:
            return "string";
    }
    return "";
}

/** Reads a whole text as a number; NaN when it is none. */
double numberOf(const std::string& text, bool whole) {
    size_t end = 0;
    try {
        const double value = whole ? static_cast<double>(std::stoll(text, &end)) : std::stod(text, &end);
        return end == text.size() ? value : std::nan("");
    } catch (const std::exception&) {
        return std::nan("");
    }
}

nlohmann::json manifest() {
    std::ifstream file(this_build::checkout() / "package/manifest.json");
    return nlohmann::json::parse(file);
}

nlohmann::json declarations() {
    return manifest().at("parameters");
}

TEST(Manifest, TellsACameraWhatToRunAndWhereItAnswers) {
    const nlohmann::json application = manifest().at("application");
    EXPECT_EQ(application.at("name"), "ostrel_senvo") << "the folder on the camera";
    EXPECT_FALSE(application.at("version").get<std::string>().empty());
    EXPECT_FALSE(application.at("vendor").get<std::string>().empty());
    EXPECT_EQ(application.at("runMode"), "respawn") << "ends itself to be started again";
    // Where followers and the page ask.
    EXPECT_EQ(application.at("fastCgi").at("path"), "webservices.cgi");
    EXPECT_EQ(application.at("fastCgi").at("access"), "administrator");
    EXPECT_EQ(application.at("fastCgi").at("socket"), "html/ostrel_senvo_fcgi.socket");
}

TEST(Manifest, DeclaresEveryParameterInOrderWithItsType) {
    const nlohmann::json declared = declarations();
    ASSERT_EQ(declared.size(), parameterTable().size());
    for (size_t i = 0; i < declared.size(); ++i) {
        EXPECT_EQ(declared[i].at("name"), parameterTable()[i].name);
        EXPECT_EQ(declared[i].at("type"), typeName(parameterTable()[i].type)) << parameterTable()[i].name;
        EXPECT_FALSE(declared[i].at("help").get<std::string>().empty()) << parameterTable()[i].name;
    }
}

TEST(Manifest, DefaultsAreOfTheirTypeAndInTheirRange) {
    int ranged = 0;
    for (const nlohmann::json& parameter : declarations()) {
        const std::string name = parameter.at("name");
        const std::string type = parameter.at("type");
        const std::string value = parameter.at("default");
        const std::string range = parameter.at("range");
        if (type == "bool") {
            EXPECT_TRUE(value == "true" || value == "false") << name << ": " << value;
        } else if (type == "integer" || type == "float") {
            const double number = numberOf(value, type == "integer");
            EXPECT_FALSE(std::isnan(number)) << name << ": " << value;
            const size_t dots = range.find("..");
            ASSERT_NE(dots, std::string::npos) << name << ": a number without a range";
            EXPECT_LT(numberOf(range.substr(0, dots), false), numberOf(range.substr(dots + 2), false)) << name;
            EXPECT_LE(numberOf(range.substr(0, dots), false), number) << name;
            EXPECT_GE(numberOf(range.substr(dots + 2), false), number) << name;
            ++ranged;
        }
    }
    EXPECT_GT(ranged, 100);
}

TEST(Manifest, TheModelSizeIsThatOfTheModelFiles) {
    std::map<std::string, std::string> defaults;
    for (const nlohmann::json& parameter : declarations()) {
        defaults[parameter.at("name")] = parameter.at("default");
    }
    EXPECT_EQ(defaults.at("ModelWidth"), "960");
    EXPECT_EQ(defaults.at("ModelHeight"), "540");
}

}  // namespace
