#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace mirel {

/// A folder of one test's own.
class TemporaryFolder {
public:
    TemporaryFolder() : m_path((std::filesystem::temp_directory_path() / "mirel-XXXXXX").string()) {
        if (!mkdtemp(m_path.data()))
            throw std::runtime_error("no temporary folder");
    }
    ~TemporaryFolder() { std::filesystem::remove_all(m_path); }

    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string path(const std::string& file) const { return m_path + "/" + file; }

private:
    std::string m_path;
};

} // namespace mirel
