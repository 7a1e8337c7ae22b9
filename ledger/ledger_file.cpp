#include "ledger/ledger_file.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <utility>

namespace ledger {

namespace {

constexpr std::string_view kEnding = ".ndjson";
constexpr std::string_view kYoungEnding = ".young";
constexpr size_t kDigits = 12;
constexpr int64_t kPiece = int64_t{1} << 18;  // bytes read at once

/** How a line begins that is whole: JSON to its end, too. */
std::optional<LineHead> wholeHeadOf(std::string_view line) {
    const std::optional<LineHead> head = headOf(line);
    return head && nlohmann::json::accept(line) ? head : std::nullopt;
}

}  // namespace

bool LedgerFile::isYoung() const {
    return std::string_view(name).ends_with(kYoungEnding);
}

std::string fileName(int64_t firstSeq, const std::string& day, bool young) {
    std::array<char, 32> number = {};
    std::snprintf(number.data(), number.size(), "%0*lld", static_cast<int>(kDigits), static_cast<long long>(firstSeq));
    return number.data() + ("-" + day) + std::string(young ? kYoungEnding : kEnding);
}

std::optional<LedgerFile> fileOf(const std::string& name) {
    const size_t dot = name.find('.');
    if (dot == std::string::npos || dot < kDigits + 2 || name[kDigits] != '-') {
        return std::nullopt;
    }
    LedgerFile file;
    const auto [end, error] = std::from_chars(name.data(), name.data() + kDigits, file.firstSeq);
    file.day = name.substr(kDigits + 1, dot - kDigits - 1);
    file.name = name;
    const bool known =
        name == fileName(file.firstSeq, file.day, false) || name == fileName(file.firstSeq, file.day, true);
    return error == std::errc() && file.firstSeq > 0 && known ? std::optional(file) : std::nullopt;
}

bool forEachLine(Disk& disk, const LedgerFile& file, int64_t from,
                 const std::function<bool(std::string_view line, int64_t at)>& visit) {
    std::string rest;
    int64_t at = from;
    int64_t passed = 0;  // bytes before the rest of what is too long for a line
    for (int64_t next = from; next < file.bytes;) {
        const std::optional<std::string> piece = disk.read(file.name, next, std::min(kPiece, file.bytes - next));
        if (!piece || piece->empty()) {
            return false;
        }
        next += static_cast<int64_t>(piece->size());
        const size_t known = rest.size();  // which has no end of a line
        rest += *piece;
        size_t begin = 0;
        for (size_t end = rest.find('\n', known); end != std::string::npos; end = rest.find('\n', begin)) {
            const int64_t bytes = std::exchange(passed, 0) + static_cast<int64_t>(end - begin) + 1;
            if (!visit(bytes > kLongestLine ? "" : std::string_view(rest).substr(begin, end - begin), at)) {
                return true;
            }
            at += bytes;
            begin = end + 1;
        }
        rest.erase(0, begin);
        if (passed + static_cast<int64_t>(rest.size()) >= kLongestLine) {
            passed += static_cast<int64_t>(rest.size());
            rest.clear();
        }
    }
    return true;
}

std::vector<LedgerFile> filesSetAside(Disk& disk) {
    const std::string_view ending = kAsideEnding;
    std::vector<LedgerFile> files;
    for (const std::string& name : disk.list()) {
        std::optional<LedgerFile> file =
            name.ends_with(ending) ? fileOf(name.substr(0, name.size() - ending.size())) : std::nullopt;
        if (file) {
            file->name = name;
            files.push_back(std::move(*file));
        }
    }
    return files;
}

std::optional<int64_t> findLine(Disk& disk, const LedgerFile& file, int64_t seq) {
    // The line behind the one that holds the byte before a position: its number and where it begins.
    const auto lineBehind = [&](int64_t from) {
        std::pair<int64_t, int64_t> found = {0, -1};
        bool behind = false;
        forEachLine(disk, file, from - 1, [&](std::string_view line, int64_t at) {
            const std::optional<LineHead> head = behind ? headOf(line) : std::nullopt;
            behind = true;
            if (head) {
                found = {head->seq, at};
            }
            return !head;
        });
        return found;
    };
    int64_t low = 0;
    for (int64_t high = file.bytes; high - low > kPiece;) {
        const int64_t middle = low + (high - low) / 2;
        const auto [number, at] = lineBehind(middle);
        (at >= 0 && number < seq ? low : high) = at >= 0 && number < seq ? at : middle;
    }
    int64_t result = file.bytes;
    const bool isRead = forEachLine(disk, file, low, [&](std::string_view line, int64_t at) {
        const std::optional<LineHead> head = headOf(line);
        const bool found = head && head->seq >= seq;
        result = found ? at : result;
        return !found;
    });
    return isRead ? std::optional(result) : std::nullopt;
}

MendedFile mendFile(Disk& disk, LedgerFile file) {
    MendedFile result;
    const std::optional<int64_t> size = disk.size(file.name);
    file.bytes = size.value_or(0);
    int64_t good = 0;
    int64_t next = file.firstSeq;
    bool isBehindDamage = false;
    result.isRead = size && forEachLine(disk, file, 0, [&](std::string_view line, int64_t at) {
                        const std::optional<LineHead> head = wholeHeadOf(line);
                        if (head && isBehindDamage) {
                            result.isDamaged = true;
                            if (head->seq > next) {
                                result.gaps.push_back({next, head->seq - 1});
                            }
                        }
                        isBehindDamage = !head;
                        if (head) {
                            good = at + static_cast<int64_t>(line.size()) + 1;
                            next = std::max(next, head->seq + 1);
                            result.last = head;
                        }
                        return true;
                    });
    file.lastSeq = result.last ? next - 1 : 0;
    if (result.isRead && good < *size) {
        result.dropped = *size - good;
        file.isClosed = !disk.truncate(file.name, good);
        file.bytes = good;
    }
    result.file = std::move(file);
    return result;
}

bool dropDamage(Disk& disk, LedgerFile& file) {
    std::string kept;
    const bool isRead = forEachLine(disk, file, 0, [&](std::string_view line, int64_t) {
        if (wholeHeadOf(line)) {
            kept += line;
            kept += '\n';
        }
        return true;
    });
    if (!isRead || !disk.replace(file.name, kept)) {
        return false;
    }
    file.bytes = static_cast<int64_t>(kept.size());
    return true;
}

}  // namespace ledger
