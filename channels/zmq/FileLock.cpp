#include "channels/zmq/FileLock.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace mirel {

namespace {

[[noreturn]] void fail(const std::string& path) {
    throw std::system_error(errno, std::generic_category(), path);
}

/// A former holder may have removed the file between our opening and locking it.
bool isAt(const std::string& path, int descriptor) {
    struct stat held {};
    struct stat there {};
    return fstat(descriptor, &held) == 0 && lstat(path.c_str(), &there) == 0 &&
           held.st_dev == there.st_dev && held.st_ino == there.st_ino;
}

} // namespace

FileLock::FileLock(const std::string& path) : m_path(path) {
    for (;;) {
        const int file =
            open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR);
        if (file < 0)
            fail(path);
        const bool isLocked = flock(file, LOCK_EX | LOCK_NB) == 0;
        if (isLocked && isAt(path, file)) {
            m_descriptor = file;
            return;
        }
        const int error = errno;
        close(file);
        if (isLocked)
            continue;
        if (error == EWOULDBLOCK)
            return;
        errno = error;
        fail(path);
    }
}

/// Removed first: who has opened it meanwhile sees that it is another one's.
FileLock::~FileLock() {
    if (m_descriptor < 0)
        return;
    unlink(m_path.c_str());
    close(m_descriptor);
}

} // namespace mirel
