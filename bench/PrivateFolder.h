#pragma once

#include <string>

namespace bench {

/// A temporary folder of this run, removed with all that is in it.
class PrivateFolder {
public:
    PrivateFolder();
    ~PrivateFolder();

    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;

    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

} // namespace bench
