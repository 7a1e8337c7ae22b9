#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ledger {

/**
 * The folder of the ledger's files, as far as the ledger needs one: a seam, so that a test can cut the power.
 *
 * Names are plain file names. Whatever fails returns false or nothing, with errno set. Any thread; operations on one
 * file do not overlap.
 */
class Disk {
public:
    virtual ~Disk() = default;

    /** The names of all files, in ascending order. */
    virtual std::vector<std::string> list() = 0;

    /** Adds to a file's end, making the file when there is none: all of the text or nothing. Not yet safe. */
    virtual bool append(const std::string& name, std::string_view text) = 0;

    /** Returns once what the file holds, and its name, would survive a power cut. */
    virtual bool sync(const std::string& name) = 0;

    /** Shortens a file. Not yet safe. */
    virtual bool truncate(const std::string& name, int64_t size) = 0;

    /** Gives a file another content; a power cut leaves the old or the new. Safe on return. */
    virtual bool replace(const std::string& name, std::string_view content) = 0;

    /**
     * Renames a file, which takes the place of one that has that name; until it is synced, a power cut may leave both
     * as they were.
     */
    virtual bool rename(const std::string& from, const std::string& to) = 0;

    /** Removes a file; one that is not there counts as removed. Safe on return. */
    virtual bool remove(const std::string& name) = 0;

    /** The size of a file in bytes. */
    virtual std::optional<int64_t> size(const std::string& name) = 0;

    /** Up to so many bytes from a position on; fewer at the file's end. */
    virtual std::optional<std::string> read(const std::string& name, int64_t from, int64_t most) = 0;
};

/** A real folder, made when it is missing. */
std::unique_ptr<Disk> openFolder(const std::string& path);

}  // namespace ledger
