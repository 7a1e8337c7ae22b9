#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "base/atomic_file.h"
#include "base/line_file.h"
#include "base/unique_fd.h"
#include "ledger/disk.h"

namespace ledger {

namespace {

class FolderDisk : public Disk {
public:
    explicit FolderDisk(std::string path) : m_path(std::move(path)) { mkdir(m_path.c_str(), 0755); }

    std::vector<std::string> list() override {
        std::vector<std::string> names;
        const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(m_path.c_str()), closedir);
        if (!folder) {
            return names;
        }
        while (const dirent* const entry = readdir(folder.get())) {
            if (entry->d_name[0] != '.') {
                names.emplace_back(entry->d_name);
            }
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    bool append(const std::string& name, std::string_view text) override {
        // The folder may have been wiped while the application runs.
        return static_cast<bool>(appendText(at(name), std::string(text))) ||
               (errno == ENOENT && mkdir(m_path.c_str(), 0755) == 0 && appendText(at(name), std::string(text)));
    }

    bool sync(const std::string& name) override {
        const UniqueFd file(open(at(name).c_str(), O_RDONLY | O_CLOEXEC));
        const UniqueFd folder(open(m_path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        return file && folder && fdatasync(file.get()) == 0 && fsync(folder.get()) == 0;
    }

    bool truncate(const std::string& name, int64_t size) override { return ::truncate(at(name).c_str(), size) == 0; }

    bool replace(const std::string& name, std::string_view content) override { return replaceFile(at(name), content); }

    bool rename(const std::string& from, const std::string& to) override {
        return std::rename(at(from).c_str(), at(to).c_str()) == 0;
    }

    bool remove(const std::string& name) override {
        const UniqueFd folder(open(m_path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        return folder && (unlink(at(name).c_str()) == 0 || errno == ENOENT) && fsync(folder.get()) == 0;
    }

    std::optional<int64_t> size(const std::string& name) override {
        struct stat status = {};
        return stat(at(name).c_str(), &status) == 0 ? std::optional<int64_t>(status.st_size) : std::nullopt;
    }

    std::optional<std::string> read(const std::string& name, int64_t from, int64_t most) override {
        const UniqueFd file(open(at(name).c_str(), O_RDONLY | O_CLOEXEC));
        struct stat status = {};
        if (!file || fstat(file.get(), &status) != 0) {
            return std::nullopt;
        }
        std::string text(static_cast<size_t>(std::clamp<int64_t>(status.st_size - from, 0, most)), '\0');
        size_t done = 0;
        while (done < text.size()) {
            const ssize_t got =
                pread(file.get(), text.data() + done, text.size() - done, from + static_cast<off_t>(done));
            if (got < 0 && errno == EINTR) {
                continue;
            }
            if (got < 0) {
                return std::nullopt;
            }
            if (got == 0) {
                break;
            }
            done += static_cast<size_t>(got);
        }
        text.resize(done);
        return text;
    }

private:
    std::string at(const std::string& name) const { return m_path + "/" + name; }

    const std::string m_path;
};

}  // namespace

std::unique_ptr<Disk> openFolder(const std::string& path) {
    return std::make_unique<FolderDisk>(path);
}

}  // namespace ledger
