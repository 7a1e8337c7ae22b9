#pragma once

#include <filesystem>
#include <system_error>

#include "base/temporary_folder.h"
#include "this_build.h"

/** A folder of a test's own, removed with everything in it. */
class TestFolder : public TemporaryFolder {
public:
    TestFolder() : TemporaryFolder("test") {}
};

/** Works in a folder for the length of a scope. */
class WorkingFolder {
public:
    explicit WorkingFolder(const std::filesystem::path& folder) : m_before(std::filesystem::current_path()) {
        std::filesystem::current_path(folder);
    }
    ~WorkingFolder() {
        std::error_code ignored;
        std::filesystem::current_path(m_before, ignored);
    }
    WorkingFolder(const WorkingFolder&) = delete;
    WorkingFolder& operator=(const WorkingFolder&) = delete;

private:
    std::filesystem::path m_before;
};

/** The folder of real clips and networks, empty when this machine has none. */
inline std::filesystem::path sharedFolder() {
    const std::filesystem::path folder = this_build::shared();
    return std::filesystem::exists(folder / "media") ? folder : std::filesystem::path();
}
