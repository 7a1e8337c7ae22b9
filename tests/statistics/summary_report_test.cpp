#include "statistics/summary_report.h"

#include <fstream>
#include <gtest/gtest.h>

#include "test_folder.h"

namespace {

constexpr const char* kHtmlBegin =
    "<html><head><title>Senvo Summary Report</title></head><body><h1>Senvo Summary Report</h1><table>";

TEST(Report, OfNothingIsAHeader) {
    const SummaryReport report;
    EXPECT_EQ(report.nrows(), 0U);
    EXPECT_EQ(report.getCSVAsString(), "Date\n");
    EXPECT_EQ(report.getHTMLAsString(), std::string(kHtmlBegin) + "<tr><th>Date</th></tr>\n\n</table></body></html>");
}

TEST(Report, NamesItsColumnsAndSortsThem) {
    SummaryReport report;
    EXPECT_TRUE(report.add(std::vector<OccupancyObjectRecord>{{"d", "Cam", objects::person, 4}}));
    EXPECT_TRUE(
        report.add(std::vector<EntranceActivityRecord>{{"d", "Cam", entrance::entrance1, objects::person, 2, 3}}));
    EXPECT_TRUE(report.addAverage({{"d", "Cam", aoi::aoi1, objects::person, 5}}));
    EXPECT_TRUE(report.add(std::vector<CrowdCountRecord>{{"d", "Cam", aoi::aoi1, objects::person, 1}}));
    EXPECT_EQ(report.getCSVAsString(),
              "Date,AOI1_Person_Cam,AverageAOI1_Person_Cam,Entrance1_Entrances_Person_Cam,"
              "Entrance1_Exits_Person_Cam,Occup_Person_Cam\nd,1,5,2,3,4\n");
}

TEST(Report, FillsMissingCellsWithZeros) {
    SummaryReport report;
    report.add("e", "B", 2);
    report.add("d", "A", 1);
    EXPECT_EQ(report.getDateTimes(), (std::vector<std::string>{"d", "e"}));
    EXPECT_EQ(report.getColumnNames(), (std::set<std::string>{"A", "B"}));
    EXPECT_EQ(report.getCSVAsString(), "Date,A,B\nd,1,0\ne,0,2\n");
    EXPECT_EQ(report.getHTMLAsString(),
              std::string(kHtmlBegin) + "<tr><th>Date</th><th>A</th><th>B</th></tr>\n\n" +
                  "<tr><th>d</th><th>1</th><th>0</th></tr>\n<tr><th>e</th><th>0</th><th>2</th></tr>\n" +
                  "</table></body></html>");
}

TEST(Report, TakesTheLastOfARepeatedCell) {
    SummaryReport report;
    report.add(std::vector<CrowdCountRecord>{{"d", "Cam", aoi::aoi1, objects::car, 1},
                                             {"d", "Cam", aoi::aoi1, objects::car, -2}});
    EXPECT_EQ(report.getCSVAsString(), "Date,AOI1_Car_Cam\nd,-2\n");
}

TEST(Report, PutsALeaderAndItsFollowersIntoOneRow) {
    SummaryReport report;
    report.add(std::vector<OccupancyObjectRecord>{{"d", "Front", objects::car, 1}, {"d", "Back", objects::car, 2}});
    EXPECT_EQ(report.getCSVAsString(), "Date,Occup_Car_Back,Occup_Car_Front\nd,2,1\n");
}

TEST(Report, LeavesOutWhatHasNoName) {
    SummaryReport report;
    report.add(std::vector<CrowdCountRecord>{{"d", "", aoi::unknown, objects::car, 1},
                                             {"d", "", aoi::aoi1, objects::unknown, 1}});
    report.addAverage({CrowdCountRecord()});
    report.add(std::vector<EntranceActivityRecord>{{"d", "", entrance::unknown, objects::car, 1, 1}});
    report.add(std::vector<OccupancyObjectRecord>{{"d", "", objects::unknown, 1}});
    EXPECT_EQ(report.nrows(), 0U);
}

TEST(Report, EscapesNothing) {
    SummaryReport report;
    report.add(std::vector<OccupancyObjectRecord>{{"d", "<b>,\"", objects::car, 1}});
    EXPECT_EQ(report.getCSVHeader(), "Date,Occup_Car_<b>,\"");
    EXPECT_EQ(report.getHTMLHeader(), "<tr><th>Date</th><th>Occup_Car_<b>,\"</th></tr>\n");
}

TEST(Report, IsWrittenWhereTheFileOpens) {
    const TestFolder folder;
    SummaryReport report;
    report.add("d", "A", 1);
    EXPECT_TRUE(report.writeCSVFile(folder.path() / "report.csv"));
    std::ifstream file(folder.path() / "report.csv");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "Date,A\nd,1\n");
    EXPECT_FALSE(report.writeCSVFile(folder.path() / "missing/report.csv"));
}

}  // namespace
