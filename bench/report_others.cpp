#include "report_others.h"

#include <cstdlib>
#include <fstream>
#include <iostream>

namespace {

bool works(const std::string& command, const std::string& what) {
    if (std::system((command + " >/dev/null 2>&1").c_str()) == 0) {
        return true;
    }
    std::cerr << what << " is not installed: skipped\n";
    return false;
}

/** One column for each zone and class, or for each class alone, as SQL. */
std::string columnsOf(const std::string& name, const std::string& number, int zones) {
    std::string columns;
    for (int zone = 0; zone < (zones == 0 ? 1 : zones); ++zone) {
        for (int object = 0; object < 9; ++object) {
            columns += ", max(case when ";
            columns += zones == 0 ? "" : "zone = " + std::to_string(zone) + " and ";
            columns += "object = " + std::to_string(object) + " then " + number + " end) as " + name +
                       std::to_string(zone) + "_" + std::to_string(object);
        }
    }
    return columns;
}

constexpr const char* kPandas = R"(
import pandas
classes = ["Person", "Bicycle", "Car", "Motorcycle", "Airplane", "Bus", "Train", "Truck", "Boat"]
def table(path, numbers, zoned):
    zone = ["Zone"] if zoned else []
    rows = pandas.read_csv(path, names=["Date", "Camera"] + zone + ["Object"] + list(numbers))
    tail = "_" + rows.Object.map(dict(enumerate(classes))) + "_" + rows.Camera
    tables = []
    for number, name in numbers.items():
        before, after = name
        rows["Column"] = before + ((rows.Zone + 1).astype(str) if zoned else "") + after + tail
        tables.append(rows.pivot_table(index="Date", columns="Column", values=number, aggfunc="last"))
    return tables
tables = (table(CROWD, {"Count": ("AOI", "")}, True)
    + table(ENTRANCE, {"In": ("Entrance", "_Entrances"), "Out": ("Entrance", "_Exits")}, True)
    + table(OCCUPANCY, {"Count": ("Occup", "")}, False)
    + table(AVERAGE, {"Count": ("AverageAOI", "")}, True))
pandas.concat(tables, axis=1).sort_index(axis=1).fillna(0).astype(int).to_csv(OUT)
)";

}  // namespace

std::optional<std::string> reportBySqlite(const report_stream::Archives& archives, const std::string& out) {
    if (!works("sqlite3 --version", "sqlite3")) {
        return std::nullopt;
    }
    std::ofstream script(out + ".sql");
    script << ".mode csv\n.headers on\n"
           << "create table crowd(date, camera, zone int, object int, count int);\n"
           << "create table entrance(date, camera, zone int, object int, come int, gone int);\n"
           << "create table occupancy(date, camera, object int, count int);\n"
           << "create table average(date, camera, zone int, object int, count int);\n"
           << ".import " << archives[0].path << " crowd\n.import " << archives[1].path << " entrance\n"
           << ".import " << archives[2].path << " occupancy\n.import " << archives[3].path << " average\n"
           << ".output " << out << "\nselect * from"
           << " (select date" << columnsOf("AOI", "count", 3) << " from crowd group by date)"
           << " join (select date" << columnsOf("Entrances", "come", 3) << columnsOf("Exits", "gone", 3)
           << " from entrance group by date) using (date)"
           << " join (select date" << columnsOf("Occup", "count", 0) << " from occupancy group by date) using (date)"
           << " join (select date" << columnsOf("AverageAOI", "count", 3)
           << " from average group by date) using (date) order by date;\n";
    return "sqlite3 :memory: < " + out + ".sql";
}

std::optional<std::string> reportByPandas(const report_stream::Archives& archives, const std::string& out) {
    if (!works("python3 -c 'import pandas'", "pandas")) {
        return std::nullopt;
    }
    std::ofstream(out + ".py") << "CROWD = '" << archives[0].path << "'\nENTRANCE = '" << archives[1].path
                               << "'\nOCCUPANCY = '" << archives[2].path << "'\nAVERAGE = '" << archives[3].path
                               << "'\nOUT = '" << out << "'\n"
                               << kPandas;
    return "python3 " + out + ".py";
}
