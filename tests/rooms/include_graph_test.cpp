#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>
#include <iostream>
#include <map>
#include <regex>
#include <set>
#include <vector>

#include "this_build.h"

namespace {

namespace fs = std::filesystem;

using Graph = std::map<std::string, std::set<std::string>>;

/** The rooms of the table in docs/architecture.md, each with those whose headers it may see. */
Graph roomsOfTheTable() {
    Graph rooms;
    std::ifstream page(this_build::checkout() / "docs" / "architecture.md");
    const std::regex name("`([a-z/]+)/`");
    for (std::string line; std::getline(page, line);) {
        if (line.rfind("| `", 0) != 0) {
            continue;
        }
        std::string room;
        for (std::sregex_iterator match(line.begin(), line.end(), name), end; match != end; ++match) {
            if (room.empty()) {
                room = (*match)[1];
                rooms[room];
            } else {
                rooms[room].insert((*match)[1]);
            }
        }
    }
    return rooms;
}

fs::path folderOf(const std::string& room) {
    return this_build::checkout() / (room.rfind("desktop/", 0) == 0 ? "platform/" + room : room);
}

/** Which rooms the files of each room include headers of. */
Graph includesOf(const Graph& rooms) {
    Graph included;
    const std::regex include(R"re(#include "(.+)/[^/"]+".*)re");
    for (const auto& [room, seen] : rooms) {
        for (const auto& entry : fs::directory_iterator(folderOf(room))) {
            std::ifstream file(entry.path());
            std::smatch match;
            for (std::string line; std::getline(file, line);) {
                if (std::regex_match(line, match, include) && rooms.count(match[1]) != 0 && match[1] != room) {
                    included[room].insert(match[1]);
                }
            }
        }
    }
    return included;
}

/** All that can be reached from a room by its arrows. */
std::set<std::string> reached(const Graph& graph, const std::string& room) {
    std::set<std::string> found;
    std::vector<std::string> open{room};
    while (!open.empty()) {
        const auto arrows = graph.find(open.back());
        open.pop_back();
        if (arrows != graph.end()) {
            for (const std::string& next : arrows->second) {
                if (found.insert(next).second) {
                    open.push_back(next);
                }
            }
        }
    }
    return found;
}

/** The arrows that no way around says already, as the lines of the page's drawing. */
std::set<std::string> drawn(const Graph& graph) {
    std::set<std::string> lines;
    for (const auto& [room, arrows] : graph) {
        for (const std::string& to : arrows) {
            const bool isSaid = std::any_of(arrows.begin(), arrows.end(),
                                            [&](const std::string& by) { return reached(graph, by).count(to) != 0; });
            if (!isSaid) {
                std::string line = "    " + room + " --> " + to;
                std::replace(line.begin(), line.end(), '/', '_');
                lines.insert(line);
            }
        }
    }
    return lines;
}

TEST(IncludeGraph, HasNoCircleBetweenRooms) {
    const Graph graph = includesOf(roomsOfTheTable());
    for (const auto& [room, arrows] : graph) {
        std::cout << room << ":";
        for (const std::string& to : arrows) {
            std::cout << " " << to;
        }
        std::cout << "\n";
        EXPECT_EQ(reached(graph, room).count(room), 0U) << room << " includes, by way of others, itself";
    }
    EXPECT_GT(graph.size(), 25U) << "the rooms were not found";
}

TEST(IncludeGraph, TableHasEveryFolderWithHeaders) {
    const Graph rooms = roomsOfTheTable();
    const std::set<std::string> others = {"bench", "build", "package", "page", "platform", "tests"};
    for (const fs::path& top : {this_build::checkout(), this_build::checkout() / "platform" / "desktop"}) {
        for (const auto& entry : fs::recursive_directory_iterator(top)) {
            const std::string folder = entry.path().parent_path().lexically_relative(top).string();
            const std::string room = (top == this_build::checkout() ? "" : "desktop/") + folder;
            if (entry.path().extension() == ".h" && others.count(folder.substr(0, folder.find('/'))) == 0 &&
                folder.front() != '.') {
                EXPECT_EQ(rooms.count(room), 1U) << entry.path();
            }
        }
    }
}

TEST(IncludeGraph, IsWhatThePageDraws) {
    std::set<std::string> lines;
    std::ifstream page(this_build::checkout() / "docs" / "architecture.md");
    for (std::string line; std::getline(page, line);) {
        if (line.find(" --> ") != std::string::npos) {
            lines.insert(line);
        }
    }
    EXPECT_EQ(lines, drawn(includesOf(roomsOfTheTable())));
}

}  // namespace
