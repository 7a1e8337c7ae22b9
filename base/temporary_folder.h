#pragma once

#include <filesystem>
#include <string>

/** A folder of its own among the machine's temporary files, removed with everything in it. */
class TemporaryFolder {
public:
    /** use: what stands in its name. Throws std::runtime_error when it cannot be made. */
    explicit TemporaryFolder(const std::string& use);
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return m_path; }

private:
    std::filesystem::path m_path;
};
