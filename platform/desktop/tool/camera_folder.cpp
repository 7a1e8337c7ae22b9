#include "camera_folder.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <sys/file.h>

namespace desktop {
namespace {

namespace fs = std::filesystem;

constexpr const char* kPackagePath = "usr/local/packages/ostrel_senvo";

std::string knownCards() {
    std::string names;
    for (const fs::directory_entry& entry : fs::directory_iterator(packageFolder() / "models")) {
        if (entry.path().extension() == ".json") {
            names += (names.empty() ? "" : ", ") + entry.path().stem().string();
        }
    }
    return names;
}

void writeFile(const fs::path& path, const std::string& text) {
    const fs::path beside = path.string() + ".new";
    std::ofstream file(beside, std::ios::trunc);
    file << text;
    file.close();
    if (!file) {
        throw std::runtime_error("cannot write " + path.string());
    }
    fs::rename(beside, path);
}

/** Holds a camera's folder for as long as the descriptor, or this process, lives. */
FileDescriptor lockFolder(const fs::path& folder) {
    FileDescriptor lock(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
        throw std::runtime_error(
            errno == EWOULDBLOCK ? "a camera runs in " + folder.string() + " already: expected a folder of its own"
                                 : "cannot lock the camera's folder " + folder.string() + ": " + std::strerror(errno));
    }
    return lock;
}

}  // namespace

fs::path packageFolder() {
    const char* const replacement = std::getenv("SENVO_PACKAGE");
    return replacement == nullptr ? fs::read_symlink("/proc/self/exe").parent_path() / "package" : replacement;
}

fs::path findModelCard(const std::string& nameOrPath) {
    if (fs::is_regular_file(nameOrPath)) {
        return fs::absolute(nameOrPath);
    }
    fs::path shipped = packageFolder() / "models" / (nameOrPath + ".json");
    if (nameOrPath.find('/') == std::string::npos && fs::is_regular_file(shipped)) {
        return shipped;
    }
    throw std::runtime_error("no model card \"" + nameOrPath + "\": expected a file or one of " + knownCards());
}

CameraFolder::CameraFolder(const fs::path& folder) : m_path(fs::absolute(folder)) {
    try {
        fs::create_directories(application() / "localdata");
        fs::create_directories(html());
        fs::create_directories(root() / "mnt/flash" / kPackagePath);
        fs::create_directories(root() / "tmp");
    } catch (const fs::filesystem_error& error) {
        throw std::runtime_error("cannot lay out the camera's folder " + m_path.string() + ": " +
                                 error.code().message());
    }
    m_lock = lockFolder(m_path);
}

fs::path CameraFolder::application() const {
    return root() / kPackagePath;
}

void CameraFolder::installModel(const fs::path& card, uint32_t width, uint32_t height) const {
    std::ifstream file(card);
    nlohmann::ordered_json document = nlohmann::ordered_json::parse(file, nullptr, false);
    if (!document.is_object()) {
        throw std::runtime_error(card.string() + ": expected a model card, a JSON object");
    }
    const fs::path folder = root() / "mnt/flash" / kPackagePath;
    document["tensor"] = {{"width", width}, {"height", height}};
    writeFile(folder / "detect_960_540_tpu.tflite", document.dump(2) + "\n");
    document["tensor"] = {{"width", height}, {"height", width}};
    writeFile(folder / "detect_540_960_tpu.tflite", document.dump(2) + "\n");
}

void CameraFolder::writeConfig(const DesktopConfig& config) const {
    writeFile(configFile(), formatDesktopConfig(config));
}

}  // namespace desktop
