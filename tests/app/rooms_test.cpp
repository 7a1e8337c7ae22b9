#include <gtest/gtest.h>

#include "program.h"
#include "this_build.h"

namespace {

TEST(Rooms, OfTheApplicationIncludeNothingOfTheDesktop) {
    int includes = 0;
    for (const char* room :
         {"app", "config", "detection", "events", "inquiry", "ledger", "overlay", "statistics", "tracking", "web"}) {
        for (const auto& entry : std::filesystem::directory_iterator(this_build::checkout() / room)) {
            std::ifstream file(entry.path());
            for (std::string line; std::getline(file, line);) {
                if (line.rfind("#include", 0) == 0) {
                    ++includes;
                    EXPECT_EQ(line.find("desktop"), std::string::npos) << entry.path() << ": " << line;
                }
            }
        }
    }
    EXPECT_GT(includes, 50) << "the rooms were not found";
}

}  // namespace
