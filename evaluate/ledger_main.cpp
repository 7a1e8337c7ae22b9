#include <CLI/CLI.hpp>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "base/command_line.h"
#include "config/settings_file.h"
#include "desktop/tool/camera_folder.h"
#include "inquiry/check.h"
#include "inquiry/lines.h"
#include "inquiry/recount.h"
#include "ledger/counts.h"

namespace {

namespace fs = std::filesystem;

constexpr int kFine = 0;
constexpr int kFaulty = 1;
// Paths are kept per cycle, however long that was; what settings say in seconds is not replayed.
constexpr int kAnyCycleMillis = 100;
constexpr size_t kLongestCycle = size_t{1} << 20;  // bytes; thousands of objects

struct Options {
    std::string state;
    std::string ledger;
    std::string from;
    std::string to;
    std::string zone;
    std::string format = "json";
    std::string kinds;
    std::string tracks;
    std::string settings;
    std::string archives;
};

fs::path folderOf(const Options& options) {
    const fs::path state = options.state.empty() ? desktop::defaultStateFolder("camera") : fs::path(options.state);
    fs::path folder = options.ledger.empty() ? desktop::ledgerFolder(state) : fs::path(options.ledger);
    if (!fs::is_directory(folder)) {
        throw std::runtime_error("expected a ledger's folder, got " + folder.string() + ", which is none");
    }
    return folder;
}

inquiry::Span spanOf(const Options& options) {
    inquiry::Span span;
    span.from = options.from.empty() ? span.from : ledger::momentOf(options.from, options.zone);
    span.until = options.to.empty() ? span.until : ledger::momentOf(options.to, options.zone);
    if (span.from >= span.until) {
        throw std::runtime_error("expected --to behind --from, got " + options.from + " and " + options.to);
    }
    return span;
}

/** A field of a spreadsheet's table. */
std::string cell(const nlohmann::json& line, const char* key) {
    const auto value = line.find(key);
    if (value == line.end()) {
        return "";
    }
    return value->is_string() ? value->get<std::string>() : value->dump();
}

/** Says what is missing in what was told. */
int statusWithout(const inquiry::Unread& unread) {
    for (const std::string& name : unread) {
        std::cerr << "senvo ledger: cannot read " << name << "; what it holds is left out\n";
    }
    return unread.empty() ? kFine : kFaulty;
}

int exportLines(const Options& options) {
    const auto disk = ledger::openFolder(folderOf(options).string());
    const inquiry::Span span = spanOf(options);
    const bool isTable = options.format == "csv";
    std::set<std::string> kinds = inquiry::kindsOf(options.kinds);
    if (isTable && !kinds.empty() && kinds != std::set<std::string>{"crossing"}) {
        throw std::runtime_error("expected --kinds crossing, or none, for the table of crossings, got " +
                                 options.kinds);
    }
    if (isTable) {
        kinds = {"crossing"};
    }
    constexpr const char* kColumns[] = {"t",     "epoch",  "seq",      "entrance", "direction",
                                        "class", "object", "followed", "occupancy"};
    if (isTable) {
        for (const char* const column : kColumns) {
            std::cout << (column == kColumns[0] ? "" : ",") << column;
        }
        std::cout << '\n';
    }
    const auto write = [&](const ledger::LineHead& head, std::string_view text) {
        if (!span.holds(inquiry::timeOf(head)) || (!kinds.empty() && !kinds.contains(head.kind))) {
            return;
        }
        nlohmann::json line = ledger::parseLine(text);
        if (line.is_discarded()) {
            return;  // damaged since it was written
        }
        if (!isTable) {
            std::cout << text << '\n';
            return;
        }
        if (head.moment.isDated()) {
            line["t"] = ledger::utcText(head.moment.utcMillis);
        }
        for (const char* const column : kColumns) {
            std::cout << (column == kColumns[0] ? "" : ",") << cell(line, column);
        }
        std::cout << '\n';
    };
    inquiry::Unread unread;
    inquiry::visitLinesFor(inquiry::chunksOf(*disk, span, &unread), span, write);
    std::cout.flush();
    return std::cout ? statusWithout(unread) : throw std::runtime_error("cannot write the lines");
}

int checkLedger(const Options& options) {
    const fs::path folder = folderOf(options);
    const fs::path beside = folder.parent_path() / "EntranceActivityTidy.csv";
    const fs::path archive =
        options.archives.empty() ? beside : fs::path(options.archives) / "EntranceActivityTidy.csv";
    const auto disk = ledger::openFolder(folder.string());
    const bool isCompared = !options.archives.empty() || fs::exists(archive);
    const inquiry::Checked checked = inquiry::check(*disk, isCompared ? archive.string() : "");
    for (const std::string& fault : checked.faults) {
        std::cout << fault << '\n';
    }
    std::cerr << checked.lines << " lines, " << checked.crossings << " crossings; " << checked.periods
              << " periods are the sum of their crossings, " << checked.explained
              << " were cut short by a start, a reset or retention; " << checked.archived
              << " compared with the archive; " << checked.faults.size() << " faults\n";
    return checked.faults.empty() ? kFine : kFaulty;
}

void recountTracks(const std::string& file, inquiry::Recount& recount) {
    std::ifstream tracks(file);
    if (!tracks) {
        throw std::runtime_error("cannot read " + file);
    }
    std::vector<char> line(kLongestCycle);
    int64_t number = 1;
    const auto fail = [&](const std::string& what) {
        throw std::runtime_error(file + ", line " + std::to_string(number) + ": " + what);
    };
    for (; tracks.getline(line.data(), static_cast<std::streamsize>(line.size())); ++number) {
        try {
            recount.addCycle(nlohmann::json::parse(line.data(), nullptr, false));
        } catch (const std::runtime_error& error) {
            fail(error.what());
        }
    }
    if (tracks.bad()) {
        throw std::runtime_error("cannot read " + file);
    }
    if (!tracks.eof()) {
        fail("expected a cycle of tracks.jsonl, got a line of " + std::to_string(kLongestCycle) + " bytes or more");
    }
}

int recount(const Options& options) {
    const Settings settings = readSettingsFile(options.settings);
    const inquiry::SettingsFor settingsFor = [&](ledger::PictureSize size) {
        ConfigParams config;
        applySettings(settings, static_cast<unsigned>(size.width), static_cast<unsigned>(size.height), kAnyCycleMillis,
                      config);
        return config;
    };
    inquiry::Recounted result;
    inquiry::Unread unread;
    if (!options.tracks.empty()) {
        inquiry::Recount replay(settingsFor, {});
        recountTracks(options.tracks, replay);
        result = replay.finish();
    } else {
        const auto disk = ledger::openFolder(folderOf(options).string());
        const inquiry::Span span = spanOf(options);
        result = inquiry::recountOf(inquiry::chunksOf(*disk, inquiry::readToRecount(span), &unread), settingsFor, span);
    }
    std::cout << inquiry::jsonOf(result).dump(2) << '\n';
    return statusWithout(unread);
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Asks the ledger, in which a camera keeps every crossing.", "senvo ledger");
    app.set_help_flag();
    app.set_help_all_flag("-h,--help", "Print this help message and exit");
    app.require_subcommand(1);
    Options options;
    const auto addLedger = [&](CLI::App& command) {
        command.add_option("--state", options.state, "The camera's folder; by default that of senvo run");
        command.add_option("--ledger", options.ledger, "The ledger's own folder, wherever it lies");
    };
    const auto addSpan = [&](CLI::App& command) {
        command.add_option("--from", options.from, "Begin, such as 2026-11-22 or 2026-11-22T08:00:00Z");
        command.add_option("--to", options.to, "End, which does not belong to it");
        command.add_option("--zone", options.zone, "Time zone, such as Europe/Berlin; by default this machine's");
    };
    CLI::App* const exports = app.add_subcommand("export", "Writes lines: as they are, or the crossings as a table");
    addLedger(*exports);
    addSpan(*exports);
    exports->add_option("--format", options.format, "json: a line each; csv: the crossings as a table")
        ->check(CLI::IsMember({"csv", "json"}))
        ->capture_default_str();
    exports->add_option("--kinds", options.kinds, "Kinds of lines, joined by commas; by default all");
    CLI::App* const checks = app.add_subcommand(
        "check", "Looks for gaps, and compares sums with the archive. Ends with 1 when something is wrong");
    addLedger(*checks);
    checks->add_option("--archives", options.archives, "The folder of the archives; by default where the ledger lies");
    CLI::App* const recounts =
        app.add_subcommand("recount", "Counts again what the ledger or a file of tracks holds, with other settings");
    recounts->group("");  // people know it as a command of its own
    addLedger(*recounts);
    addSpan(*recounts);
    recounts->add_option("--settings", options.settings, "A settings file as senvo evaluate takes it")->required();
    CLI::Option* const tracks = recounts->add_option("--tracks", options.tracks,
                                                     "The file tracks.jsonl of senvo evaluate, instead of a ledger");
    for (const char* const ofALedger : {"--state", "--ledger", "--from", "--to", "--zone"}) {
        tracks->excludes(recounts->get_option(ofALedger));
    }
    return perform(app, argc, argv, "senvo ledger", [&] {
        return exports->parsed() ? exportLines(options) : checks->parsed() ? checkLedger(options) : recount(options);
    });
}
