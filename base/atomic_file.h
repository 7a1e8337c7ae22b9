#pragma once

#include <string>
#include <string_view>
#include <sys/types.h>

#include "base/unique_fd.h"

/** Writes all of a text; false with errno set, part of it perhaps written, when that fails. */
bool writeAll(int fd, std::string_view text);

/**
 * A file written beside another one, which it replaces when all of it is on the disk: a power cut or a killed process
 * leaves either the old file or the new one. Gone, with the old file untouched, when it is not told to replace it.
 */
class Replacement {
public:
    explicit Replacement(const std::string& path);

    /** The same where others could have put a link beside the file: it is made anew, with these permissions. */
    Replacement(const std::string& path, mode_t permissions);
    ~Replacement();
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    /** Adds to the new content. */
    void add(std::string_view text);

    /** Syncs, renames, syncs the folder. False, with errno set, when any step since the construction failed. */
    bool replace();

    // The same in its steps, for who must not let others in between: more may be added after a sync, which then has
    // to come again before the new content takes the old one's place.
    bool sync();
    bool takePlace();
    void syncFolder() const;

    /** The new file, for whoever gives it to somebody. */
    int descriptor() const { return m_file.get(); }

    /** Where the new content of a file is written. */
    static std::string beside(const std::string& path) { return path + ".new"; }

private:
    void writeBuffer();
    void check(bool good);

    const std::string m_path;
    UniqueFd m_file;
    std::string m_buffer;
    int m_error = 0; /**< errno of the first step that failed */
    bool m_replaced = false;
};

/** Replaces a file's content by a Replacement. False, with errno set, on failure. */
bool replaceFile(const std::string& path, std::string_view content);
