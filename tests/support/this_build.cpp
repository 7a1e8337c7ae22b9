#include "this_build.h"

#include <cstdlib>

namespace this_build {

std::filesystem::path checkout() {
    return CHECKOUT;
}

std::filesystem::path folder() {
    return BUILD_FOLDER;
}

std::string program(const std::string& name) {
    return folder() / "bin" / name;
}

std::vector<std::string> command(const std::string& name) {
    std::vector<std::string> words = {EMULATOR};
    words.push_back(program(name));
    return words;
}

std::filesystem::path shared() {
    const char* const named = std::getenv("SENVO_SHARED");
    return named != nullptr ? std::filesystem::path(named) : checkout() / "../shared";
}

}  // namespace this_build
