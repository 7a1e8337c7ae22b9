#pragma once

#include <cstdint>
#include <fstream>
#include <string>

/** Kilobytes that /proc tells of this process under a name such as "VmHWM"; 0 where it does not. */
inline int64_t memoryFigure(const std::string& name) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind(name + ":", 0) == 0) {
            return std::stoll(line.substr(name.size() + 1));
        }
    }
    return 0;
}
