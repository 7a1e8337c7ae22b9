#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "base/unique_fd.h"
#include "report_others.h"
#include "statistics/record_archive.h"
#include "statistics/report_stream.h"
#include "topics.h"

namespace {

constexpr time_t kFirst = 1700000000;
constexpr int kPeriod = 300;
constexpr const char* kClasses[] = {"Person", "Bicycle", "Car",   "Motorcycle", "Airplane",
                                    "Bus",    "Train",   "Truck", "Boat"};

std::string localdata() {
    static const std::string path = [] {
        const std::filesystem::path folder =
            std::filesystem::path(std::getenv("OSTREL_SENVO_ROOT")) / "usr/local/packages/ostrel_senvo/localdata";
        std::filesystem::create_directories(folder);
        return folder.string() + "/";
    }();
    return path;
}

/** Archives of so many flushes of 90 lines: everything monitored. */
const report_stream::Archives& archivesOf(int flushes) {
    static std::map<int, report_stream::Archives> made;
    const auto [entry, isNew] = made.try_emplace(flushes);
    report_stream::Archives& files = entry->second;
    if (isNew) {
        const std::string start = localdata() + std::to_string(flushes);
        files = {{{start + "-crowd"}, {start + "-entrance"}, {start + "-occupancy"}, {start + "-average"}}};
        std::ofstream crowd(files[0].path);
        std::ofstream entrance(files[1].path);
        std::ofstream occupancy(files[2].path);
        std::ofstream average(files[3].path);
        for (int flush = 0; flush < flushes; ++flush) {
            const std::string begin = OccupancyRecordBase::timeToString(kFirst + time_t{flush} * kPeriod) + ",Lobby,";
            for (int cell = 0; cell < 27; ++cell) {
                const std::string row = begin + std::to_string(cell / 9) + ',' + std::to_string(cell % 9) + ',';
                crowd << row << (flush + cell) % 13 << '\n';
                entrance << row << (flush * cell) % 17 << ',' << flush % 7 << '\n';
                average << row << cell % 5 << '\n';
            }
            for (int object = 0; object < 9; ++object) {
                occupancy << begin << object << ',' << flush % 40 << '\n';
            }
        }
    }
    return files;
}

/** The obvious way: split each line by a stream, numbers by std::stoi, cells in a map of maps. */
std::string plainReport(const report_stream::Archives& archives) {
    std::map<std::string, std::map<std::string, int>> rows;
    std::map<std::string, int> columns;
    const auto read = [&](const std::string& path, auto&& add) {
        std::ifstream file(path);
        for (std::string line; std::getline(file, line);) {
            std::istringstream stream(line);
            std::vector<std::string> fields;
            for (std::string field; std::getline(stream, field, ',');) {
                fields.push_back(field);
            }
            add(fields);
        }
    };
    const auto cell = [&](const std::string& date, const std::string& column, const std::string& value) {
        rows[date][column] = std::stoi(value);
        columns[column];
    };
    const auto zoned = [](const std::string& zone, const std::string& middle, const std::vector<std::string>& fields) {
        return zone + std::to_string(std::stoi(fields[2]) + 1) + middle + kClasses[std::stoi(fields[3])] + '_' +
               fields[1];
    };
    read(archives[0].path, [&](const auto& f) { cell(f[0], zoned("AOI", "_", f), f[4]); });
    read(archives[1].path, [&](const auto& f) {
        cell(f[0], zoned("Entrance", "_Entrances_", f), f[4]);
        cell(f[0], zoned("Entrance", "_Exits_", f), f[5]);
    });
    read(archives[2].path,
         [&](const auto& f) { cell(f[0], std::string("Occup_") + kClasses[std::stoi(f[2])] + '_' + f[1], f[3]); });
    read(archives[3].path, [&](const auto& f) { cell(f[0], zoned("AverageAOI", "_", f), f[4]); });
    std::string text = "Date";
    for (const auto& [column, unused] : columns) {
        text += "," + column;
    }
    text += '\n';
    for (const auto& [date, row] : rows) {
        text += date;
        for (const auto& [column, unused] : columns) {
            const auto found = row.find(column);
            text += "," + std::to_string(found == row.end() ? 0 : found->second);
        }
        text += '\n';
    }
    return text;
}

/** Prints what memory a process of its own needed at most beyond what it began with. */
template <typename Work>
void printPeak(const std::string& label, Work work) {
    std::cerr << label << ": " << std::flush;
    const pid_t child = fork();
    if (child == 0) {
        rusage usage = {};
        getrusage(RUSAGE_SELF, &usage);
        const int64_t before = usage.ru_maxrss;
        const size_t bytes = work();
        getrusage(RUSAGE_SELF, &usage);
        std::cerr << (usage.ru_maxrss - before) / 1024 << " MiB of memory for " << bytes / 1048576 << " MiB of text\n";
        _exit(0);
    }
    waitpid(child, nullptr, 0);
}

/** How fast a core copies memory, in GB/s: the best of a few tries. */
double copyRate() {
    const std::vector<char> from(size_t{64} << 20U, 1);
    std::vector<char> to(from.size());
    double best = 0.0;
    for (int attempt = 0; attempt < 10; ++attempt) {
        const auto start = std::chrono::steady_clock::now();
        std::memcpy(to.data(), from.data(), from.size());
        benchmark::DoNotOptimize(to.data());
        const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
        best = std::max(best, static_cast<double>(from.size()) / time.count() / 1e9);
    }
    return best;
}

int64_t linesOf(const std::string& path) {
    std::ifstream file(path);
    return std::count(std::istreambuf_iterator<char>(file), {}, '\n');
}

/** Another program at the same work, once. */
void addOther(const std::string& name, int flushes, const std::optional<std::string>& command, const std::string& out) {
    if (!command) {
        return;
    }
    benchmark::RegisterBenchmark(name.c_str(),
                                 [=](benchmark::State& state) {
                                     bool done = false;
                                     for (auto _ : state) {
                                         done = std::system(command->c_str()) == 0;
                                     }
                                     if (!done || linesOf(out) != flushes + 1) {
                                         state.SkipWithError("wrote another table");
                                     }
                                 })
        ->Iterations(1)
        ->Repetitions(1)
        ->Unit(benchmark::kMillisecond);
}

std::vector<CrowdCountRecord> flushOf90() {
    std::vector<CrowdCountRecord> records;
    for (int line = 0; line < 90; ++line) {
        records.emplace_back("2024-01-02 03:04:05", "Lobby", aoi::aoi2, objects::car, line);
    }
    return records;
}

void benchAppend(benchmark::State& state) {
    localdata();
    RecordArchive<CrowdCountRecord> archive("append.csv");
    const std::vector<CrowdCountRecord> records = flushOf90();
    for (auto _ : state) {
        archive.addRecords(records, true);
    }
}

void benchPlainWrite(benchmark::State& state) {
    std::string text;
    for (const CrowdCountRecord& record : flushOf90()) {
        text += record.serialize() + '\n';
    }
    const std::string path = localdata() + "write.csv";
    for (auto _ : state) {
        const UniqueFd file(open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600));
        benchmark::DoNotOptimize(write(file.get(), text.data(), text.size()));
        fdatasync(file.get());
    }
}

}  // namespace

std::vector<Limit> registerReport() {
    std::vector<Limit> limits;
    for (const int flushes : {1000, 10'000, 100'000}) {
        const std::string topic = "report of " + std::to_string(flushes) + " flushes";
        const auto once = [&](const char* variant, auto work) {
            benchmark::RegisterBenchmark((topic + "/" + variant).c_str(),
                                         [flushes, work](benchmark::State& state) {
                                             const report_stream::Archives& archives = archivesOf(flushes);
                                             for (auto _ : state) {
                                                 benchmark::DoNotOptimize(work(archives));
                                             }
                                         })
                ->Iterations(1)
                ->Repetitions(flushes > 10'000 ? 1 : 3)
                ->Unit(benchmark::kMillisecond);
        };
        once("plain", plainReport);
        once("ours", [](const auto& archives) { return report_stream::write(archives, report_stream::Form::Csv); });
        const report_stream::Archives& archives = archivesOf(flushes);
        printPeak(topic, [&] { return report_stream::write(archives, report_stream::Form::Csv).size(); });
        const std::string out = localdata() + std::to_string(flushes) + "-other";
        addOther(topic + "/sqlite3", flushes, reportBySqlite(archives, out + "-sqlite"), out + "-sqlite");
        addOther(topic + "/pandas", flushes, reportByPandas(archives, out + "-pandas"), out + "-pandas");
        limits.push_back({topic, "plain", "", std::nullopt});
        limits.push_back({topic, "sqlite3", "plain", std::nullopt});
        limits.push_back({topic, "pandas", "plain", std::nullopt});
        limits.push_back({topic, "ours", "plain", 1.0 / 15});
    }
    // Half a second on a core that copies 15 GB/s; slower memory may take longer.
    const double rate = copyRate();
    std::cerr << "a core copies " << rate << " GB/s\n";
    limits.push_back({"report of 100000 flushes", "ours", "", 500'000.0 * 15.0 / rate});
    return limits;
}

std::vector<Limit> registerArchive() {
    benchmark::RegisterBenchmark("appending a flush/one write", benchPlainWrite);
    benchmark::RegisterBenchmark("appending a flush/ours", benchAppend);
    for (const int flushes : {1000, 100'000}) {
        const report_stream::Archives& archives = archivesOf(flushes);
        const std::string name = archives[0].path.substr(archives[0].path.rfind('/') + 1);
        printPeak("purge of " + std::to_string(flushes) + " flushes", [&] {
            RecordArchive<CrowdCountRecord>(name).purgeBefore(kFirst);
            return std::filesystem::file_size(archives[0].path);
        });
    }
    return {{"appending a flush", "one write", "", std::nullopt}, {"appending a flush", "ours", "one write", 1.5}};
}
