#include "desktop/webserver/accounts.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <glib.h>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "base/atomic_file.h"
#include "base/unique_fd.h"
#include "desktop/webserver/front.h"

namespace desktop {
namespace {

constexpr size_t kPasswordLength = 16;
constexpr size_t kMostBytes = 128;
constexpr ptrdiff_t kLeastCharacters = 10;
constexpr size_t kLongestName = 32;

/** HA1 of RFC 7616, with SHA-256. */
std::string digestOf(const std::string& user, const std::string& password) {
    const std::string text = user + ":" + kRealm + ":" + password;
    const std::unique_ptr<gchar, decltype(&g_free)> digest(
        g_compute_checksum_for_string(G_CHECKSUM_SHA256, text.data(), static_cast<gssize>(text.size())), g_free);
    return digest.get();
}

std::string lineStart(const std::string& user) {
    return user + ":" + kRealm + ":";
}

/** The web server passes such lines over; front.lua reads them. */
std::string roleStart(const std::string& user) {
    return "#role:" + user + ":";
}

void checkName(const std::string& user) {
    const auto isPlain = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '-' ||
               c == '_';
    };
    if (user.empty() || user.size() > kLongestName || !std::all_of(user.begin(), user.end(), isPlain)) {
        throw std::runtime_error("expected a user's name of 1 to " + std::to_string(kLongestName) +
                                 " letters, digits, dots, dashes and underscores, got \"" + user + "\"");
    }
}

void checkPassword(const std::string& password) {
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7F'; };
    const auto beginsCharacter = [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; };
    const auto characters = std::count_if(password.begin(), password.end(), beginsCharacter);
    if (characters < kLeastCharacters || password.size() > kMostBytes ||
        std::any_of(password.begin(), password.end(), isControl)) {
        throw std::runtime_error("expected a password of " + std::to_string(kLeastCharacters) +
                                 " characters or more, of at most " + std::to_string(kMostBytes) +
                                 " bytes and without control characters, got one of " + std::to_string(characters) +
                                 " characters");
    }
}

/** Gives a file that root writes to the folder's owner, for whom the web server reads it. */
bool giveToOwnerOf(const std::filesystem::path& folder, int file) {
    struct stat owner = {};
    return geteuid() != 0 || (stat(folder.c_str(), &owner) == 0 && fchown(file, owner.st_uid, owner.st_gid) == 0);
}

/**
 * The file of accounts, held for as long as the descriptor lives; none when there is none. What somebody else could
 * have put in its place is refused: root must not hand what a link leads to on to the folder's owner.
 */
UniqueFd openAccounts(const std::filesystem::path& path, int operation) {
    const auto fail = [&](const std::string& reason) {
        return std::runtime_error("cannot read " + path.string() + ": " + reason);
    };
    for (;;) {
        UniqueFd file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        if (file.get() < 0) {
            if (errno == ENOENT) {
                return file;
            }
            throw fail(std::strerror(errno));
        }
        struct stat folder = {};
        struct stat opened = {};
        if (stat(path.parent_path().c_str(), &folder) != 0 || fstat(file.get(), &opened) != 0 ||
            flock(file.get(), operation) != 0) {
            throw fail(std::strerror(errno));
        }
        if (!S_ISREG(opened.st_mode) || opened.st_uid != folder.st_uid) {
            throw fail("expected a file of its folder's owner");
        }
        struct stat named = {};
        if (lstat(path.c_str(), &named) == 0 && named.st_ino == opened.st_ino) {
            return file;
        }
        // Replaced while another call held it.
    }
}

std::vector<std::string> linesOf(const UniqueFd& file) {
    std::string text;
    char piece[4096];
    for (ssize_t got = 0; file.get() >= 0 && (got = read(file.get(), piece, sizeof(piece))) != 0;) {
        if (got < 0) {
            throw std::runtime_error(std::string("cannot read the accounts: ") + std::strerror(errno));
        }
        text.append(piece, static_cast<size_t>(got));
    }
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        lines.push_back(line);
    }
    return lines;
}

}  // namespace

std::string randomPassword() {
    // No 0, O, 1, l or I: people type it.
    static constexpr char kLetters[] = "abcdefghijkmnopqrstuvwxyzABCDEFGHJKLMNPQRSTUVWXYZ23456789";
    constexpr size_t kCount = sizeof(kLetters) - 1;
    std::string password;
    while (password.size() < kPasswordLength) {
        unsigned char byte = 0;
        if (getrandom(&byte, 1, 0) == 1 && byte < 256 / kCount * kCount) {
            password += kLetters[byte % kCount];
        }
    }
    return password;
}

Accounts::Accounts(std::filesystem::path file) : m_file(std::move(file)) {}

bool Accounts::has(const std::string& user) const {
    const std::vector<std::string> lines = linesOf(openAccounts(m_file, LOCK_SH));
    return std::any_of(lines.begin(), lines.end(),
                       [&](const std::string& line) { return line.rfind(lineStart(user), 0) == 0; });
}

void Accounts::set(const std::string& user, const std::string& password, std::optional<Role> role) const {
    checkName(user);
    checkPassword(password);
    if (user == kOperator && role.value_or(Role::Operator) != Role::Operator) {
        throw std::runtime_error(std::string("expected the role operator for ") + kOperator +
                                 ", without whom nobody could change anything, got viewer");
    }
    const UniqueFd held = openAccounts(m_file, LOCK_EX);
    std::string text;
    std::string roleLine;
    for (const std::string& line : linesOf(held)) {
        if (line.rfind(roleStart(user), 0) == 0) {
            roleLine = line + "\n";
        } else if (line.rfind(lineStart(user), 0) != 0) {
            text += line + "\n";
        }
    }
    if (role) {
        roleLine = roleStart(user) + (*role == Role::Operator ? "operator" : "viewer") + "\n";
    }
    if (roleLine.empty() && user != kOperator) {
        throw std::runtime_error("expected a role, --role viewer or --role operator, for the new user " + user);
    }
    text += roleLine;
    text += lineStart(user) + digestOf(user, password) + "\n";
    Replacement replacement(m_file.string(), S_IRUSR | S_IWUSR);
    replacement.add(text);
    if (!replacement.sync() || !giveToOwnerOf(m_file.parent_path(), replacement.descriptor()) ||
        !replacement.replace()) {
        throw std::runtime_error("cannot write " + m_file.string() + ": " + std::strerror(errno));
    }
}

}  // namespace desktop
