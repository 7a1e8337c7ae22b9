#include "base/temporary_folder.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

TemporaryFolder::TemporaryFolder(const std::string& use) {
    std::string name = (std::filesystem::temp_directory_path() / ("senvo-" + use + "-XXXXXX")).string();
    if (mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("cannot make the temporary folder " + name + ": " + std::strerror(errno));
    }
    m_path = name;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}
