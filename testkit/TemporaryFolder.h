#pragma once

#include <string>

namespace mirel {

/// A new folder, removed at the end with all that is in it, and kept after a failure.
class TemporaryFolder {
public:
    /// Throws `std::system_error`.
    TemporaryFolder();
    ~TemporaryFolder();

    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string path(const std::string& file) const { return m_path + "/" + file; }

private:
    std::string m_path;
};

} // namespace mirel
