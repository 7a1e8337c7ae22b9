#include "desktop/tool/camera_folder.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "base/atomic_file.h"
#include "desktop/config/not_now.h"

namespace desktop {
namespace {

namespace fs = std::filesystem;

constexpr const char* kPackagePath = "usr/local/packages/ostrel_senvo";

std::vector<std::string> shippedCards() {
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(packageFolder() / "models")) {
        if (entry.path().extension() == ".json") {
            names.push_back(entry.path().stem().string());
        }
    }
    return names;
}

std::string knownCards() {
    std::string names = "auto";
    for (const std::string& name : shippedCards()) {
        names += ", " + name;
    }
    return names;
}

void writeFile(const fs::path& path, const std::string& text) {
    if (!replaceFile(path.string(), text)) {
        throw NotNow("cannot write " + path.string() + ": " + std::strerror(errno));
    }
}

/**
 * Refuses what somebody else could have planted: the web server runs a script that lies in the folder, and what is
 * written goes where a link leads. What root put inside is trusted, since root may do anything.
 */
void requireOwner(const fs::path& path, const fs::path& folder) {
    struct stat status = {};
    if (lstat(path.c_str(), &status) == 0 && status.st_uid != geteuid() && (status.st_uid != 0 || path == folder)) {
        throw std::runtime_error("expected the camera's folder to belong to user " + std::to_string(geteuid()) +
                                 ", got " + path.string() + " of user " + std::to_string(status.st_uid));
    }
}

void requireNoOtherWriter(const fs::path& path, const fs::path& folder) {
    constexpr fs::perms kOthersWrite = fs::perms::group_write | fs::perms::others_write;
    const fs::file_status status = fs::symlink_status(path);
    if ((fs::is_directory(status) || fs::is_regular_file(status)) &&
        (status.permissions() & kOthersWrite) != fs::perms::none) {
        throw std::runtime_error("expected that nobody else may write to the camera's folder, got " + path.string() +
                                 ", to which others may; chmod -R go-w " + folder.string() +
                                 " mends that, if what it holds can be trusted");
    }
}

/** The same for a folder and all that it holds; links are looked at, not followed. */
void requireOwnTree(const fs::path& folder) {
    requireOwner(folder, folder);
    if (!fs::is_directory(folder)) {
        return;
    }
    constexpr fs::perms kOthersEnter = fs::perms::group_exec | fs::perms::others_exec;
    const bool othersEnter = (fs::status(folder).permissions() & kOthersEnter) != fs::perms::none;
    requireNoOtherWriter(folder, folder);
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
        requireOwner(entry.path(), folder);
        if (othersEnter) {
            requireNoOtherWriter(entry.path(), folder);
        }
    }
}

/**
 * Where a folder is: its own name may be a link, as where a service manager keeps its services' folders, though not
 * one that somebody else may turn elsewhere.
 */
fs::path realFolder(const fs::path& folder) {
    const fs::path link = folder.has_filename() ? folder : folder.parent_path();
    if (!fs::is_symlink(link)) {
        return folder;
    }
    requireOwner(link, {});
    return fs::canonical(folder);
}

/** For the length of a scope, what is made is for its owner alone. */
class PrivateFiles {
public:
    PrivateFiles() : m_before(umask(S_IRWXG | S_IRWXO)) {}
    ~PrivateFiles() { umask(m_before); }
    PrivateFiles(const PrivateFiles&) = delete;
    PrivateFiles& operator=(const PrivateFiles&) = delete;

private:
    const mode_t m_before;
};

/** Holds a camera's folder for as long as the descriptor, or this process, lives. */
UniqueFd lockFolder(const fs::path& folder) {
    UniqueFd lock(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (flock(lock.get(), LOCK_EX | LOCK_NB) != 0) {
        throw NotNow(errno == EWOULDBLOCK
                         ? "a camera runs in " + folder.string() + " already: expected a folder of its own"
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

ChosenCard chooseModelCard(const std::string& nameOrPath, const std::string& networksFolder) {
    if (nameOrPath != "auto") {
        return {findModelCard(nameOrPath), "as asked for"};
    }
    const fs::path motion = findModelCard("motion");
    if (networksFolder.empty()) {
        return {motion, "for there is no folder of networks"};
    }
    std::vector<std::string> names = {"fastestdet", "yolo-fastest-xl", "yolox-nano"};
    std::vector<std::string> others = shippedCards();
    std::sort(others.begin(), others.end());
    names.insert(names.end(), others.begin(), others.end());
    for (const std::string& name : names) {
        const fs::path card = findModelCard(name);
        std::ifstream file(card);
        const nlohmann::json document = nlohmann::json::parse(file, nullptr, false);
        const auto files = document.is_object() ? document.find("network") : document.end();
        if (document.is_object() && files != document.end() && files->is_array() &&
            std::all_of(files->begin(), files->end(), [&](const nlohmann::json& needed) {
                return needed.is_string() && fs::is_regular_file(fs::path(networksFolder) / needed.get<std::string>());
            })) {
            return {card, "the best whose network lies in " + networksFolder};
        }
    }
    return {motion, "for no card's network lies in " + networksFolder};
}

fs::path defaultStateFolder(const std::string& name) {
    // A folder that is not named from the root is to be ignored.
    if (const char* const state = std::getenv("XDG_STATE_HOME"); state != nullptr && *state == '/') {
        return fs::path(state) / "ostrel-senvo" / name;
    }
    const char* const home = std::getenv("HOME");
    return fs::path(home == nullptr ? "." : home) / ".local/state/ostrel-senvo" / name;
}

fs::path ledgerFolder(const fs::path& stateFolder) {
    return stateFolder / "root" / kPackagePath / "localdata/ledger";
}

CameraFolder::CameraFolder(const fs::path& folder) : m_path(fs::absolute(folder)) {
    try {
        m_path = realFolder(m_path);
        requireOwnTree(m_path);
        const PrivateFiles whatIsMade;
        fs::create_directories(application() / "localdata");
        fs::create_directories(html());
        fs::create_directories(root() / "mnt/flash" / kPackagePath);
        fs::create_directories(root() / "tmp");
    } catch (const fs::filesystem_error& error) {
        throw std::runtime_error("cannot lay out the camera's folder " + m_path.string() + ": " +
                                 error.code().message());
    }
    requireOwnTree(m_path);  // whatever was made just now, was not made where somebody else was faster
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
