#pragma once

#include <string>

namespace mirel {

/// A file whose holder is the only one, among all processes. It is removed at the end; where
/// a process ends too suddenly for that, the file stays and nobody holds it.
class FileLock {
public:
    /// `std::system_error` when there cannot be such a file.
    explicit FileLock(const std::string& path);
    ~FileLock();

    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    /// False: somebody else holds it.
    bool isOurs() const { return m_descriptor >= 0; }

private:
    const std::string m_path;
    int m_descriptor = -1;
};

} // namespace mirel
