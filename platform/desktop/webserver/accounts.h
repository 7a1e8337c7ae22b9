#pragma once

#include <filesystem>
#include <string>

/**
 * Who may use a camera's web interface: a file with a digest for each user, as the web server reads it. Passwords
 * themselves are kept nowhere.
 */
namespace desktop {

inline constexpr const char* kOperator = "operator"; /**< the user that people log in as */

/** A password that nobody guesses, of 16 letters and digits. */
std::string randomPassword();

class Accounts {
public:
    /** The file need not exist yet. */
    explicit Accounts(std::filesystem::path file);

    bool has(const std::string& user) const;

    /**
     * Sets a user's password. The file is readable for its owner only: who calls, or, called by root, the owner of its
     * folder. Throws std::runtime_error for a password that is empty, longer than 128 bytes or has control characters,
     * and when the file cannot be written.
     */
    void set(const std::string& user, const std::string& password) const;

private:
    std::filesystem::path m_file;
};

}  // namespace desktop
