#pragma once

#include <filesystem>
#include <optional>
#include <string>

/**
 * Who may use a camera's web interface: a file with a digest for each user, as the web server reads it. Passwords
 * themselves are kept nowhere.
 */
namespace desktop {

inline constexpr const char* kOperator = "operator"; /**< the user that every camera has */

/** What a user may do. */
enum class Role {
    Viewer,   /**< see the live picture, counts and reports */
    Operator, /**< that, and change everything */
};

/** A password that nobody guesses, of 16 letters and digits. */
std::string randomPassword();

class Accounts {
public:
    /** The file need not exist yet. */
    explicit Accounts(std::filesystem::path file);

    /** Throws std::runtime_error when the file cannot be read, or is none of its folder's owner's. */
    bool has(const std::string& user) const;

    /**
     * Sets a user's password and role; without one a user keeps his, and kOperator is an operator always. The file is
     * readable for its owner only: who calls, or, called by root, the owner of its folder. Calls at the same time wait
     * for each other. Throws what has() throws, and std::runtime_error for a user whose name is not 1 to 32 letters,
     * digits, dots, dashes and underscores or who would have no role, for a password of fewer than 10 characters, of
     * more than 128 bytes or with control characters, and when the file cannot be written.
     */
    void set(const std::string& user, const std::string& password, std::optional<Role> role = std::nullopt) const;

private:
    std::filesystem::path m_file;
};

}  // namespace desktop
