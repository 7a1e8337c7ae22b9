#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "program.h"
#include "test_folder.h"
#include "this_build.h"

namespace {

using Lines = std::vector<std::string>;

class EvaluateProgram : public testing::Test {
protected:
    ProgramResult run(Lines arguments) const {
        arguments.insert(arguments.begin(), this_build::program("senvo-evaluate"));
        return runProgram(arguments, m_folder.path());
    }

    std::string file(const std::string& name, const std::string& text) const {
        writeFile(m_folder.path() / name, text);
        return m_folder.path() / name;
    }

    /** A second of a grey picture. */
    std::string clip() const {
        const std::string path = m_folder.path() / "clip.mkv";
        const ProgramResult made = runProgram({FFMPEG_PROGRAM, "-v", "error", "-f", "lavfi", "-i",
                                               "color=gray:size=320x180:rate=10:duration=1", "-c:v", "ffv1", path},
                                              m_folder.path());
        EXPECT_EQ(made.status, 0) << made.err;
        return path;
    }

    TestFolder m_folder;
};

struct UnusableCase {
    const char* label;
    Lines arguments;
    const char* said;
};

class Unusable : public EvaluateProgram, public testing::WithParamInterface<UnusableCase> {};

TEST_P(Unusable, EndsWithTwoAndTheReason) {
    file("text.mp4", "this is no video\n");
    file("bad.json", "{\"colour\": 1}");
    const ProgramResult result = run(GetParam().arguments);
    EXPECT_EQ(result.status, 2) << GetParam().label;
    EXPECT_EQ(result.out, "") << GetParam().label;
    EXPECT_NE(result.err.find(GetParam().said), std::string::npos) << GetParam().label << ": " << result.err;
}

INSTANTIATE_TEST_SUITE_P(
    Table, Unusable,
    testing::Values(
        UnusableCase{"nothing", {}, "CLIP is required"},
        UnusableCase{"unknown option", {"scene:plaza", "--colour"}, "--colour"},
        UnusableCase{"missing clip", {"missing.mp4"}, "missing.mp4"},
        UnusableCase{"a text as clip", {"text.mp4"}, "text.mp4"}, UnusableCase{"unknown scene", {"scene:moon"}, "moon"},
        UnusableCase{"unknown model", {"scene:plaza", "--model", "eyes"}, "no model card \"eyes\""},
        UnusableCase{"missing settings",
                     {"scene:plaza", "--settings", "missing.json"},
                     "cannot read the settings file missing.json"},
        UnusableCase{"bad settings", {"scene:plaza", "--settings", "bad.json"}, "bad.json: unknown setting \"colour\""},
        UnusableCase{
            "missing truth", {"scene:plaza", "--truth", "missing.json"}, "cannot read the truth file missing.json"},
        UnusableCase{"bad truth", {"scene:plaza", "--truth", "bad.json"}, "bad.json: expected a key \"clip\""},
        UnusableCase{"a file as folder", {"scene:plaza", "--out", "text.mp4"}, "text.mp4"}),
    [](const auto& instance) { return "Case" + std::to_string(instance.index); });

TEST_F(EvaluateProgram, ATruncatedClipIsUnusable) {
    const std::string whole = readFile(clip());
    const ProgramResult head = run({file("head.mkv", whole.substr(0, 64))});
    EXPECT_EQ(head.status, 2) << "nothing but a part of the header";
    EXPECT_NE(head.err.find("head.mkv"), std::string::npos) << head.err;
    const ProgramResult half = run({file("half.mkv", whole.substr(0, whole.size() / 2))});
    EXPECT_EQ(half.status, 2);
    EXPECT_NE(half.err.find("half.mkv: ends at 0."), std::string::npos) << half.err;
    EXPECT_NE(half.err.find(" s of 1.00 s"), std::string::npos) << half.err;
    EXPECT_EQ(half.out, "") << "no counts of a part";
}

TEST_F(EvaluateProgram, ATruthOfAnotherClipIsUnusable) {
    const std::string truth =
        file("truth.json", R"({"clip": "other.mp4", "sha256": "00", "settings": {}, "expected": {}})");
    const ProgramResult result = run({clip(), "--truth", truth});
    EXPECT_EQ(result.status, 2);
    EXPECT_NE(result.err.find("the truth is of another clip: expected other.mp4 with sha256 00, got "),
              std::string::npos)
        << result.err;
}

TEST_F(EvaluateProgram, CountsThatAreEqualOrDifferentDecideTheStatus) {
    const std::string picture = clip();
    const auto truthOf = [&](const std::string& occupancy) {
        return file("truth.json", "{\"clip\": \"" + picture +
                                      "\", \"settings\": {}, \"expected\": {\"occupancy_at_end\": " + occupancy + "}}");
    };
    const ProgramResult equal = run({picture, "--truth", truthOf("0")});
    EXPECT_EQ(equal.status, 0) << equal.err;
    EXPECT_NE(equal.out.find("truth        equal\n"), std::string::npos) << equal.out;
    const ProgramResult different = run({picture, "--truth", truthOf("3")});
    EXPECT_EQ(different.status, 1) << different.err;
    EXPECT_NE(different.out.find("truth        different\n  occupancy at end: expected 3, found 0\n"),
              std::string::npos)
        << different.out;
    const ProgramResult json = run({picture, "--truth", truthOf("3"), "--json"});
    EXPECT_EQ(json.status, 1);
    const nlohmann::json document = nlohmann::json::parse(json.out);
    EXPECT_EQ(document.at("equal_to_truth"), false);
    EXPECT_EQ(document.at("differences"), (Lines{"occupancy at end: expected 3, found 0"}));
    EXPECT_EQ(document.at("cycles"), 10);
}

TEST_F(EvaluateProgram, TwoRunsOverTheSceneGiveTheSameBytes) {
    const ProgramResult first = run({"scene:plaza", "--out", "first"});
    const ProgramResult second = run({"scene:plaza", "--out", "second"});
    EXPECT_EQ(first.out, second.out);
    for (const char* name : {"tracks.jsonl", "events.jsonl"}) {
        const std::string text = readFile(m_folder.path() / "first" / name);
        EXPECT_GT(text.size(), 500U) << name;
        EXPECT_EQ(text, readFile(m_folder.path() / "second" / name)) << name;
    }
}

/** The cells of a line of a table. */
Lines cellsOf(const std::string& line) {
    Lines cells;
    std::istringstream text(line);
    for (std::string cell; std::getline(text, cell, ',');) {
        cells.push_back(cell);
    }
    return cells;
}

TEST_F(EvaluateProgram, KeepsWhatItCountsInArchivesAndReports) {
    const ProgramResult result = run({"scene:plaza", "--out", "kept", "--json"});
    ASSERT_EQ(result.status, 0) << result.err;
    const nlohmann::json counted = nlohmann::json::parse(result.out);
    const auto linesOf = [&](const char* name) {
        Lines lines;
        std::istringstream text(readFile(m_folder.path() / "kept" / name));
        for (std::string line; std::getline(text, line);) {
            lines.push_back(line);
        }
        return lines;
    };
    static constexpr const char* kClasses[] = {"Person", "Bicycle", "Car",   "Motorcycle", "Airplane",
                                               "Bus",    "Train",   "Truck", "Boat"};
    // The scene lasts as long as the first period: one row.
    const Lines report = linesOf("report.csv");
    ASSERT_EQ(report.size(), 2U);
    const Lines columns = cellsOf(report[0]);
    const Lines values = cellsOf(report[1]);
    ASSERT_EQ(columns.size(), values.size());
    std::map<std::string, std::string> row;
    for (size_t i = 0; i < columns.size(); ++i) {
        row[columns[i]] = values[i];
    }
    size_t steps = 0;
    for (const std::string& line : linesOf("EntranceActivityTidy.csv")) {
        const Lines cells = cellsOf(line);
        ASSERT_EQ(cells.size(), 6U) << line;
        const std::string entrance = std::to_string(std::stoi(cells[2]) + 1);
        const std::string name = kClasses[std::stoi(cells[3])];
        const nlohmann::json expected =
            counted.at("entrance" + entrance).value(name, nlohmann::json{{"enter", 0}, {"exit", 0}});
        EXPECT_EQ(cells[4], expected.at("enter").dump()) << line;
        EXPECT_EQ(cells[5], expected.at("exit").dump()) << line;
        EXPECT_EQ(row["Entrance" + entrance + "_Entrances_" + name + "_" + cells[1]], cells[4]) << line;
        EXPECT_EQ(row["Entrance" + entrance + "_Exits_" + name + "_" + cells[1]], cells[5]) << line;
        EXPECT_EQ(row["Date"], cells[0]);
        EXPECT_EQ(cells[0].substr(14), "01:00") << "the clip's own clock";
        steps += cells[4] != "0" || cells[5] != "0" ? 1 : 0;
    }
    EXPECT_GE(steps, 1U);
    for (const char* name : {"CrowdCountTidy.csv", "OccupancyTidy.csv", "AverageCrowdCountTidy.csv"}) {
        const Lines lines = linesOf(name);
        ASSERT_FALSE(lines.empty()) << name;
        for (const std::string& line : lines) {
            EXPECT_EQ(cellsOf(line).front(), row["Date"]) << name;
        }
    }
    EXPECT_NE(readFile(m_folder.path() / "kept" / "report.html").find("<tr><th>" + row["Date"] + "</th>"),
              std::string::npos);
}

TEST_F(EvaluateProgram, CountsTheSceneAsItsTruthSays) {
    const ProgramResult result = run({"scene:plaza"});
    EXPECT_EQ(result.status, 0) << result.out << result.err;
}

struct RealClipCase {
    const char* clip;
    const char* model;
};

class RealClip : public EvaluateProgram, public testing::WithParamInterface<RealClipCase> {};

TEST_P(RealClip, IsCountedAsItsTruthSays) {
    const std::filesystem::path shared = sharedFolder();
    if (shared.empty()) {
        GTEST_SKIP() << "no shared clips on this machine";
    }
    const std::string name = shared / "media" / GetParam().clip;
    const ProgramResult result = run({name + ".mp4", "--truth", name + ".truth.json", "--model", GetParam().model,
                                      "--networks", (shared / "models").string()});
    EXPECT_EQ(result.status, 0) << result.out << result.err;
}

INSTANTIATE_TEST_SUITE_P(Table, RealClip,
                         testing::Values(RealClipCase{"car-detection", "motion"},
                                         RealClipCase{"one-by-one-person-detection", "yolo-fastest-xl"}),
                         [](const auto& instance) { return "Case" + std::to_string(instance.index); });

}  // namespace
