// The host's own accept4, in place of the C library's. ZeroMQ accepts whoever connects; when there
// is no descriptor left it ends the process (ipc) or tries for ever (tcp), and tells nobody in time
// to stop it. Here the last descriptors are kept for the rest of the process: a caller that would
// take one of them is accepted and closed at once. It tries again by itself, and gets in when there
// is room. The same goes for what the service itself accepts.
//
// A library must not do this to a program; this is one.

#include "channels/RefusalCounter.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <dlfcn.h>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace mirel {

namespace {

constexpr rlim_t kMostReserved = 256;
constexpr rlim_t kReservedPart = 4;

rlim_t limitOfDescriptors() {
    rlimit limit{};
    return getrlimit(RLIMIT_NOFILE, &limit) == 0 ? limit.rlim_cur : RLIM_INFINITY;
}

void logRefusal(rlim_t limit) {
    static RefusalCounter refused("Host", "new callers"); // there is one accept4 in the process
    refused.refuse("all but the reserved of the " + std::to_string(limit) +
                   " descriptors that the host may have (ulimit -Hn) are taken");
}

/// The system gives the lowest number that is free, so this tells how many are taken.
bool isReserved(int descriptor, rlim_t limit) {
    const rlim_t reserved = std::min(limit / kReservedPart, kMostReserved);
    return static_cast<rlim_t>(descriptor) >= limit - reserved;
}

int acceptWithinLimit(int listener, sockaddr* address, socklen_t* size, int flags) {
    static const auto systems = reinterpret_cast<decltype(&accept4)>(dlsym(RTLD_NEXT, "accept4"));
    const int accepted = systems(listener, address, size, flags);
    const bool isShort =
        accepted < 0 && (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS);
    const rlim_t limit = limitOfDescriptors();
    if (!isShort && (accepted < 0 || !isReserved(accepted, limit)))
        return accepted;
    if (accepted >= 0)
        close(accepted);
    logRefusal(limit);
    errno = ECONNABORTED; // which is no reason to give up
    return -1;
}

} // namespace

} // namespace mirel

extern "C" __attribute__((visibility("default"))) int accept4(int listener, sockaddr* address,
                                                              socklen_t* size, int flags) {
    return mirel::acceptWithinLimit(listener, address, size, flags);
}
