#include <gtest/gtest.h>

#include "scripted_process.h"

/* The real process, from its start to its end. */

namespace {

TEST(Process, AnalysesAThousandFramesWhileItsWebServiceAnswers) {
    const ScriptedProcess process;
    Child child(process.start("1000"));
    int answered = 0;
    int status = -1;
    while ((status = child.wait(0)) == -1) {
        for (const char* action : {"get_status_code", "get_data_panel_info", "get_all_parameters"}) {
            answered += process.answers(action) ? 1 : 0;
        }
    }
    EXPECT_EQ(status, 0) << readFile(process.folder() / "err");
    EXPECT_EQ(readFile(process.folder() / "out"), "1000\n");
    EXPECT_GE(answered, 100);
    EXPECT_NE(readFile(process.folder() / "localdata/SenvoLog.txt").find("STOPPING ostrel_senvo"), std::string::npos);
}

}  // namespace
