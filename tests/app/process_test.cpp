#include <gtest/gtest.h>
#include <map>

#include "scripted_process.h"

/* The real process, from its start to its end. */

namespace {

TEST(Process, AnalysesAThousandFramesWhileItsWebServiceAnswers) {
    const ScriptedProcess process;
    Child child(process.start("1000"));
    std::map<std::string, int> answered;
    int status = -1;
    while ((status = child.wait(0)) == -1) {
        for (const char* action : {"get_status_code", "get_data_panel_info", "get_all_parameters", "get_metrics"}) {
            // Nobody answers before the service is there, nor once it has ended.
            if (const std::string answer = process.answer(action); !answer.empty()) {
                EXPECT_EQ(answer.rfind("Status: 200 OK\r\n", 0), 0U) << action << ": " << answer;
                ++answered[action];
            }
        }
    }
    EXPECT_EQ(status, 0) << readFile(process.folder() / "err");
    EXPECT_EQ(readFile(process.folder() / "out"), "1000\n");
    EXPECT_EQ(answered.size(), 4U);
    EXPECT_NE(readFile(process.folder() / "localdata/SenvoLog.txt").find("STOPPING ostrel_senvo"), std::string::npos);
}

}  // namespace
