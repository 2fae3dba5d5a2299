#include "runtime/threads/EventFd.h"

#include "runtime/threads/CancellationOff.h"

#include <cerrno>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>

namespace mirel {

namespace {

int create() {
    const int descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (descriptor < 0)
        throw std::system_error(errno, std::generic_category(), "eventfd");
    return descriptor;
}

} // namespace

EventFd::EventFd() : m_descriptor(create()) {}

EventFd::~EventFd() { close(m_descriptor); }

// Neither can fail in a way that matters: a full counter is readable, an empty one is clear.

void EventFd::set() noexcept {
    // A service whose thread is being cancelled may still answer. The system call would be where
    // that strikes, and nothing can be unwound through here.
    const CancellationOff cancellationOff;
    [[maybe_unused]] const int result = eventfd_write(m_descriptor, 1);
}

void EventFd::clear() noexcept {
    eventfd_t count = 0;
    [[maybe_unused]] const int result = eventfd_read(m_descriptor, &count);
}

} // namespace mirel
