#include "desktop/mqtt/line_files.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <fcntl.h>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "base/unique_fd.h"

namespace desktop {
namespace {

constexpr std::string_view kEnding = ".ndjson";
constexpr int64_t kChunk = int64_t{1} << 18;
constexpr int64_t kLongestLine = int64_t{1} << 20;

std::optional<FiledLine> parse(std::string_view text) {
    const nlohmann::json line = nlohmann::json::parse(text, nullptr, false);
    if (!line.is_object()) {
        return std::nullopt;
    }
    const auto epoch = line.find("epoch");
    const auto seq = line.find("seq");
    if (epoch == line.end() || !epoch->is_string() || seq == line.end() || !seq->is_number_integer() ||
        seq->get<int64_t>() < 1) {
        return std::nullopt;
    }
    return FiledLine{epoch->get<std::string>(), seq->get<int64_t>(), std::string(text)};
}

}  // namespace

std::vector<LineFiles::Name> LineFiles::list() const {
    std::vector<Name> names;
    std::error_code failed;
    for (std::filesystem::directory_iterator entry(m_folder, failed), end; !failed && entry != end;
         entry.increment(failed)) {
        const std::string name = entry->path().filename().string();
        Name found{name, 0};
        const auto [rest, error] = std::from_chars(name.data(), name.data() + name.size(), found.first);
        if (error == std::errc() && name.size() > kEnding.size() && name.ends_with(kEnding)) {
            names.push_back(std::move(found));
        }
    }
    std::sort(names.begin(), names.end(), [](const Name& left, const Name& right) { return left.name < right.name; });
    return names;
}

/** Whole lines from a place on; more than `most` bytes only where one line is longer. Nothing: the file is gone. */
std::optional<LineFiles::Text> LineFiles::read(const std::string& name, int64_t at, int64_t most) const {
    const UniqueFd file(open((m_folder + "/" + name).c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status = {};
    if (file.get() < 0 || fstat(file.get(), &status) != 0) {
        return std::nullopt;
    }
    Text text{"", status.st_ino, status.st_size};
    if (at >= text.size) {
        return text;
    }
    if (fdatasync(file.get()) != 0) {
        text.size = at;  // nothing of it is safe
        return text;
    }
    int64_t wanted = most;
    while (true) {
        const int64_t length = std::min(wanted, text.size - at);
        text.bytes.resize(static_cast<size_t>(length));
        const ssize_t got = pread(file.get(), text.bytes.data(), text.bytes.size(), at);
        text.bytes.resize(static_cast<size_t>(std::max<ssize_t>(got, 0)));
        const size_t end = text.bytes.rfind('\n');
        if (end != std::string::npos) {
            text.bytes.resize(end + 1);
            return text;
        }
        if (got < length || length == text.size - at || wanted > kLongestLine) {
            if (got == length && wanted > kLongestLine) {
                return text;  // longer than a line may be: passed over piece by piece
            }
            text.bytes.clear();
            return text;
        }
        wanted *= 2;
    }
}

void LineFiles::seek(const LinePosition& position) {
    m_position = position;
    m_name.clear();
    m_isUnknown = false;
}

void LineFiles::seekNewest(int64_t bytes) {
    const std::vector<Name> names = list();
    seek({});
    if (names.empty()) {
        return;
    }
    if (const std::optional<Text> probe = read(names.back().name, INT64_MAX, 1)) {
        m_name = names.back().name;
        m_file = probe->file;
        m_at = std::max<int64_t>(0, probe->size - bytes);
        m_isUnknown = true;
    }
}

bool LineFiles::isSameFile(const std::vector<Name>& names) const {
    if (std::none_of(names.begin(), names.end(), [this](const Name& name) { return name.name == m_name; })) {
        return false;
    }
    const std::optional<Text> probe = read(m_name, INT64_MAX, 1);
    return probe && probe->file == m_file && probe->size >= m_at;
}

/** Finds the line to go on with from m_position. */
void LineFiles::find(const std::vector<Name>& names) {
    size_t first = 0;
    while (first + 1 < names.size() && names[first + 1].first <= m_position.seq) {
        ++first;
    }
    std::string before;  // the epoch of the last line that is not behind the position
    for (size_t i = first; i < names.size() && !m_position.epoch.empty(); ++i) {
        int64_t at = 0;
        for (std::optional<Text> text = read(names[i].name, at, kChunk); text && !text->bytes.empty();
             text = read(names[i].name, at, kChunk)) {
            for (size_t begin = 0; begin < text->bytes.size();) {
                const size_t end = std::min(text->bytes.find('\n', begin), text->bytes.size());
                const auto line = parse(std::string_view(text->bytes).substr(begin, end - begin));
                if (line && line->seq > m_position.seq) {
                    if (line->epoch != m_position.epoch && before != m_position.epoch) {
                        m_position = {};
                        m_name = names.front().name;
                        m_at = 0;
                        m_file = read(m_name, INT64_MAX, 1).value_or(Text{}).file;
                        return;
                    }
                    m_name = names[i].name;
                    m_file = text->file;
                    m_at = at + static_cast<int64_t>(begin);
                    return;
                }
                before = line ? line->epoch : before;
                begin = end + 1;
            }
            at += static_cast<int64_t>(text->bytes.size());
            m_name = names[i].name;
            m_file = text->file;
            m_at = at;
        }
    }
    if (before != m_position.epoch || m_name.empty()) {
        m_position = {};
        m_name = names.front().name;
        m_at = 0;
        m_file = read(m_name, INT64_MAX, 1).value_or(Text{}).file;
    }
}

LineRun LineFiles::next(int64_t mostBytes) {
    const std::vector<Name> names = list();
    if (names.empty()) {
        m_name.clear();
        return {};
    }
    if (m_name.empty() || !isSameFile(names)) {
        m_name.clear();
        find(names);
    }
    LineRun run;
    int64_t bytes = 0;
    for (bool isFull = false; !isFull;) {
        const std::optional<Text> text = read(m_name, m_at, std::max<int64_t>(mostBytes - bytes, 1));
        if (!text || text->file != m_file) {
            return run;  // replaced just now: found again at the next call
        }
        if (text->bytes.empty()) {
            const auto later =
                std::find_if(names.begin(), names.end(), [this](const Name& n) { return n.name > m_name; });
            const std::optional<Text> begin = later == names.end() ? std::nullopt : read(later->name, INT64_MAX, 1);
            if (!begin) {
                return run;
            }
            m_name = later->name;
            m_file = begin->file;
            m_at = 0;
            continue;
        }
        for (size_t begin = 0; begin < text->bytes.size();) {
            const size_t end = std::min(text->bytes.find('\n', begin), text->bytes.size());
            auto line = parse(std::string_view(text->bytes).substr(begin, end - begin));
            const auto length = static_cast<int64_t>(end + 1 - begin);
            if (line) {
                const bool isOtherEpoch = line->epoch != m_position.epoch;
                if (!run.lines.empty() && (isOtherEpoch || bytes + length > mostBytes)) {
                    isFull = true;
                    break;
                }
                if (run.lines.empty()) {
                    run.after = std::min(isOtherEpoch ? int64_t{0} : m_position.seq, line->seq - 1);
                    run.after = m_isUnknown ? line->seq - 1 : run.after;
                }
                m_isUnknown = false;
                m_position = {line->epoch, line->seq};
                bytes += length;
                run.lines.push_back(std::move(*line));
            }
            m_at += std::min(length, static_cast<int64_t>(text->bytes.size() - begin));
            begin = end + 1;
        }
        isFull = isFull || bytes >= mostBytes;
    }
    return run;
}

}  // namespace desktop
