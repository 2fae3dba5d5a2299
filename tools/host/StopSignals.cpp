#include "host/StopSignals.h"

#include <array>
#include <cerrno>
#include <poll.h>
#include <pthread.h>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>

namespace mirel {

StopSignals::StopSignals() {
    sigemptyset(&m_signals);
    sigaddset(&m_signals, SIGINT);
    sigaddset(&m_signals, SIGTERM);
    // Who starts the host with nohup wants it to outlive the terminal. A blocked signal would come
    // even so.
    struct sigaction hangUp {};
    if (sigaction(SIGHUP, nullptr, &hangUp) == 0 && hangUp.sa_handler != SIG_IGN)
        sigaddset(&m_signals, SIGHUP);
    m_descriptor = signalfd(-1, &m_signals, SFD_CLOEXEC);
    if (m_descriptor < 0)
        throw std::system_error(errno, std::generic_category(), "signalfd");
    pthread_sigmask(SIG_BLOCK, &m_signals, nullptr);
}

StopSignals::~StopSignals() {
    // What has come already has been obeyed.
    signalfd_siginfo taken{};
    while (pending() &&
           read(m_descriptor, &taken, sizeof(taken)) == static_cast<ssize_t>(sizeof(taken))) {
    }
    close(m_descriptor);
    pthread_sigmask(SIG_UNBLOCK, &m_signals, nullptr);
}

bool StopSignals::pending() const {
    std::array<pollfd, 1> item{{{m_descriptor, POLLIN, 0}}};
    return poll(item.data(), item.size(), 0) > 0;
}

bool StopSignals::waitForSignalOr(int otherDescriptor) const {
    std::array<pollfd, 2> items{{{m_descriptor, POLLIN, 0}, {otherDescriptor, POLLIN, 0}}};
    while (poll(items.data(), items.size(), -1) < 0 && errno == EINTR) {
    }
    return items[0].revents != 0;
}

} // namespace mirel
