#pragma once

#include <string>

#include "program.h"
#include "test_folder.h"
#include "this_build.h"

/** What docs/ledger.schema.json has against lines of a ledger, a fault a line; empty when they are as it says. */
inline std::string schemaFaults(const std::string& lines) {
    const TestFolder folder;
    writeFile(folder.path() / "lines", lines);
    const std::string checkout = this_build::checkout().string();
    const ProgramResult result = runProgram(
        {"/usr/bin/python3", checkout + "/tests/ledger/check_lines.py", checkout + "/docs/ledger.schema.json", "lines"},
        folder.path());
    return result.status == 0 ? result.out : result.out + result.err + "check_lines.py failed\n";
}
