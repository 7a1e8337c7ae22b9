#pragma once

#include <algorithm>
#include <map>
#include <regex>

#include "web_fixture.h"

/** Whole settings documents for the exchange. */
class SettingsFixture : public WebFixture {
protected:
    using Tags = std::map<std::string, std::string>;
    using Texts = std::vector<std::string>;

    static std::string body(const Tags& tags) {
        std::string text = "<root>";
        for (const auto& [tag, value] : tags) {
            text += "<" + tag + ">" + value + "</" + tag + ">";
        }
        return text + "</root>";
    }

    static Texts elementsInOrder() {
        Texts names = {"app",
                       "MinNumberOfPeopleForTrigger",
                       "Sensitivity",
                       "MaxDisappear",
                       "DetectPersons",
                       "DetectCars",
                       "DetectMotorcycles",
                       "DetectBicycles",
                       "DetectAirplanes",
                       "DetectBuses",
                       "DetectTrains",
                       "DetectTrucks",
                       "DetectBoats",
                       "VerboseLog",
                       "AoiLogicComparison",
                       "ResetByOccupanyCount",
                       "LocatorAtBottom",
                       "IsSnap",
                       "DetectionOverlaysOn",
                       "AnonOverlaysOn",
                       "SelectedDetectionOverlay",
                       "SelectedAnonOverlay",
                       "CamsResAsCsv"};
        const auto area = [&](const std::string& name, int coordinates) {
            for (int i = 0; i < coordinates; ++i) {
                names.push_back(name + "_" + std::to_string(i));
            }
            names.push_back(name + "_Active");
        };
        names.emplace_back("DetectionControlPoints");
        for (const std::string number : {"1", "2", "3"}) {
            area("Detection" + number, 16);
            names.push_back("Detection" + number + "ThreshSeconds");
        }
        for (const std::string number : {"1", "2", "3"}) {
            area("Exclusion" + number, 8);
        }
        names.emplace_back("EntrancesControlPoints");
        for (const std::string number : {"1", "2", "3"}) {
            area("Entrance" + number, 16);
        }
        for (const char* name : {"IsCameraInside", "IsOccResOn", "OccAutoResTime", "Occupants"}) {
            names.emplace_back(name);
        }
        for (int follower = 1; follower <= 10; ++follower) {
            for (const char* what : {"Active", "Name", "Login", "Pwd", "IP"}) {
                names.push_back("FO" + std::to_string(follower) + "_" + what);
            }
        }
        names.insert(names.end(), {"RepInt", "CamName"});
        return names;
    }

    /** A whole upload, every value different from that of an empty record. */
    static Tags everything() {
        static const std::regex kCoordinate("(Detection|Exclusion|Entrance)\\d_\\d+");
        Tags tags;
        for (const std::string& name : elementsInOrder()) {
            const bool coordinate = std::regex_match(name, kCoordinate);
            const bool flag = name.ends_with("Active") || name.ends_with("On") ||
                              (name.rfind("Detect", 0) == 0 && name.rfind("Detection", 0) != 0) ||
                              name == "VerboseLog" || name == "ResetByOccupanyCount" || name == "LocatorAtBottom" ||
                              name == "IsSnap" || name == "IsCameraInside";
            tags[name] = coordinate ? "0.25" : flag ? "1" : "3";
        }
        tags.erase("app");
        tags.erase("CamsResAsCsv");
        tags["Sensitivity"] = "0.75";
        tags["SelectedDetectionOverlay"] = "640x360";
        tags["SelectedAnonOverlay"] = "320x180";
        tags["VerboseLog"] = "0";
        tags["OccAutoResTime"] = "23:55";
        tags["CamName"] = "Main & hall";
        tags["FO10_IP"] = "10.0.0.10";
        return tags;
    }

    void upload(const Tags& tags) { EXPECT_EQ(m_settings.set_post_parameters(body(tags)), 0); }
    Tags document() const {
        return parameter_io::parseXMLData_no_dependency("<root>" + m_settings.get_parameters() + "</root>");
    }
};
