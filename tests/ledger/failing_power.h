#pragma once

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "ledger/disk.h"

/**
 * A folder in memory whose power can be cut: what was not synced by then may be there, not be there, be there in blocks
 * of which some are holes, and in another order than it was written. Also one that can be full.
 */
class FailingPower : public ledger::Disk {
public:
    explicit FailingPower(unsigned seed) : m_random(seed) {}

    /** From here on appends and replacements fail for lack of space, or no longer do. */
    void setFull(bool full) { m_full = full; }

    /** From here on a file that is replaced finds no room, while there is some for lines; or no longer so. */
    void setRoomForLinesOnly(bool linesOnly) { m_linesOnly = linesOnly; }

    /** From here on nothing can be cut off a file, or it can again. */
    void setUncuttable(bool uncuttable) { m_uncuttable = uncuttable; }

    /** From here on reading fails, or no longer does. */
    void setUnreadable(bool unreadable) { m_unreadable = unreadable; }

    /** Leaves of each file what is safe, and by chance some of the rest. */
    void cutPower() {
        std::map<std::string, File> left;
        for (auto& [name, file] : m_files) {
            // A name that was never synced is there or not; a rename of a safe file has happened or not.
            const bool newName = file.nameIsSafe || chance(2);
            if (!newName && file.under) {
                leave(left, name, *file.under);
            }
            if (newName || !file.safeName.empty()) {
                leave(left, newName ? name : file.safeName, file);
            }
        }
        m_files = left;
    }

    std::vector<std::string> list() override {
        std::vector<std::string> names;
        for (const auto& [name, file] : m_files) {
            names.push_back(name);
        }
        return names;
    }

    bool append(const std::string& name, std::string_view text) override {
        if (m_full) {
            errno = ENOSPC;
            return false;
        }
        m_files[name].content += text;
        return true;
    }

    bool sync(const std::string& name) override {
        const auto at = m_files.find(name);
        if (at == m_files.end()) {
            errno = ENOENT;
            return false;
        }
        at->second.safe = at->second.content;
        at->second.safeName = name;
        at->second.nameIsSafe = true;
        at->second.under.reset();
        return true;
    }

    bool truncate(const std::string& name, int64_t size) override {
        if (m_uncuttable) {
            errno = ENOSPC;
            return false;
        }
        m_files.at(name).content.resize(static_cast<size_t>(size));
        return true;
    }

    bool replace(const std::string& name, std::string_view content) override {
        if (m_full || m_linesOnly) {
            errno = ENOSPC;
            return false;
        }
        m_files[name].content = content;
        return sync(name);
    }

    bool rename(const std::string& from, const std::string& to) override {
        auto node = m_files.extract(from);
        if (const auto old = m_files.find(to); old != m_files.end()) {
            node.mapped().under = std::make_shared<File>(old->second);
            m_files.erase(old);
        }
        node.key() = to;
        node.mapped().nameIsSafe = false;
        m_files.insert(std::move(node));
        return true;
    }

    bool remove(const std::string& name) override {
        m_files.erase(name);
        return true;
    }

    std::optional<int64_t> size(const std::string& name) override {
        const auto at = m_files.find(name);
        return at == m_files.end() ? std::nullopt : std::optional(static_cast<int64_t>(at->second.content.size()));
    }

    std::optional<std::string> read(const std::string& name, int64_t from, int64_t most) override {
        const auto at = m_files.find(name);
        if (m_unreadable) {
            errno = EIO;
            return std::nullopt;
        }
        if (at == m_files.end() || from > static_cast<int64_t>(at->second.content.size())) {
            return std::nullopt;
        }
        return at->second.content.substr(static_cast<size_t>(from), static_cast<size_t>(most));
    }

private:
    struct File {
        std::string content;
        std::string safe;     /**< what is on the disk for certain */
        std::string safeName; /**< under which name; empty when under none */
        bool nameIsSafe = false;
        std::shared_ptr<File> under; /**< whose place it took, which may come back */
    };

    static constexpr size_t kBlock = 64;

    bool chance(unsigned oneIn) { return m_random() % oneIn == 0; }

    void leave(std::map<std::string, File>& left, const std::string& name, const File& file) {
        File after;
        after.content = tear(file);
        after.safe = after.content;
        after.safeName = name;
        after.nameIsSafe = true;
        left[name] = after;
    }

    std::string tear(const File& file) {
        if (!file.content.starts_with(file.safe)) {
            return chance(2) ? file.content : file.safe;  // cut off, as mending does
        }
        const size_t unsafe = file.content.size() - file.safe.size();
        std::string content = file.content.substr(0, file.safe.size() + (unsafe == 0 ? 0 : m_random() % (unsafe + 1)));
        if (chance(2)) {
            for (size_t at = file.safe.size(); at < content.size(); at += kBlock) {
                if (chance(3)) {
                    std::fill_n(content.begin() + static_cast<std::ptrdiff_t>(at),
                                std::min(kBlock, content.size() - at), '\0');
                }
            }
        }
        return content;
    }

    std::map<std::string, File> m_files;
    std::mt19937 m_random;
    bool m_full = false;
    bool m_unreadable = false;
    bool m_linesOnly = false;
    bool m_uncuttable = false;
};

/** A disk on which one file cannot be read. */
class DiskWithABadFile : public FailingPower {
public:
    using FailingPower::FailingPower;

    std::optional<std::string> read(const std::string& name, int64_t from, int64_t most) override {
        return name == bad ? std::nullopt : FailingPower::read(name, from, most);
    }

    std::string bad;
};
