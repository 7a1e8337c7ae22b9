#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace desktop {

/** A place between two lines: behind this one, whether or not it is still there. */
struct LinePosition {
    std::string epoch; /**< empty: before the first line there is */
    int64_t seq = 0;

    bool operator==(const LinePosition&) const = default;
};

/** One line, of which nothing is known but these two members. */
struct FiledLine {
    std::string epoch;
    int64_t seq = 0;
    std::string text; /**< without its end */
};

/** Lines of one epoch, in order: all that there are behind `after` up to the last of them. */
struct LineRun {
    int64_t after = 0; /**< the number that they follow; 0 where the epoch begins with them */
    std::vector<FiledLine> lines;
};

/**
 * Reads a folder of files of JSON lines, each with an `epoch` and a `seq`, while another process appends to them,
 * rewrites and removes them. A file's name begins with the number of its first line and ends in ".ndjson"; all others
 * are passed over. What has no line end yet is no line yet; what cannot be read as one is passed over.
 *
 * Lines are synced to the disk before they are given: a power cut takes back none that somebody has. One thread.
 */
class LineFiles {
public:
    explicit LineFiles(std::string folder) : m_folder(std::move(folder)) {}

    /**
     * Goes on behind a position. Where there is no line of its epoch on either side of it, the lines are another
     * ledger's, which is given from its beginning.
     */
    void seek(const LinePosition& position);

    /** Goes on with the newest file, at most so many bytes before its end. */
    void seekNewest(int64_t bytes);

    /** The next lines, of at most so many bytes, but always one if there is one; none when all were given. */
    LineRun next(int64_t mostBytes);

    /** Behind the line that was given last. */
    const LinePosition& position() const { return m_position; }

private:
    struct Name {
        std::string name;
        int64_t first = 0;
    };
    struct Text {
        std::string bytes; /**< whole lines, from `at` on */
        uint64_t file = 0; /**< the file's number on its disk */
        int64_t size = 0;  /**< of the file, of which all is safe */
    };

    std::vector<Name> list() const;
    std::optional<Text> read(const std::string& name, int64_t at, int64_t most) const;
    bool isSameFile(const std::vector<Name>& names) const;
    void find(const std::vector<Name>& names);

    const std::string m_folder;
    LinePosition m_position;
    std::string m_name;        // of the file that is read; empty: m_position is to be found first
    uint64_t m_file = 0;       // its number on its disk; a rewritten file has another
    int64_t m_at = 0;          // where to go on in it
    bool m_isUnknown = false;  // the position is one that no line told
};

}  // namespace desktop
