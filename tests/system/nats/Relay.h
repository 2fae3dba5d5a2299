#pragma once

#include "testkit/Port.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <list>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace mirel {

/// A way to a port of this machine that can be cut: what is connected through it loses its
/// connection, and whoever connects meanwhile is turned away.
class Relay {
public:
    explicit Relay(int targetPort) : m_target(loopback(targetPort)) {
        sockaddr_in own = loopback(0);
        socklen_t size = sizeof own;
        auto* const any = reinterpret_cast<sockaddr*>(&own);
        if (bind(m_listener, any, size) != 0 || listen(m_listener, 16) != 0 ||
            getsockname(m_listener, any, &size) != 0)
            throw std::system_error(errno, std::generic_category(), "relay");
        m_port = ntohs(own.sin_port);
        m_thread = std::thread(&Relay::run, this);
    }
    ~Relay() {
        change(State::eEnd);
        m_thread.join();
        close(m_listener);
        close(m_changed);
    }

    Relay(const Relay&) = delete;
    Relay& operator=(const Relay&) = delete;

    int port() const { return m_port; }
    void cut() { change(State::eCut); }
    void restore() { change(State::eWhole); }

private:
    enum class State { eWhole, eCut, eEnd };
    using Ends = std::pair<int, int>;

    /// Returns when it is so.
    void change(State state) {
        m_state = state;
        eventfd_write(m_changed, 1);
        for (State is = m_is; is != state; is = m_is)
            m_is.wait(is);
    }

    void run() {
        for (State state = m_state; state != State::eEnd; state = m_state) {
            std::vector<pollfd> items{{m_listener, POLLIN, 0}, {m_changed, POLLIN, 0}};
            for (const auto& [caller, server] : m_ways) {
                items.push_back({caller, POLLIN, 0});
                items.push_back({server, POLLIN, 0});
            }
            poll(items.data(), items.size(), -1);
            std::size_t item = 2;
            eventfd_t count = 0;
            if (items[1].revents != 0) // before the state is read, or the next change gets lost
                eventfd_read(m_changed, &count);
            state = m_state;
            m_ways.remove_if([&](const Ends& way) {
                const bool caller = items[item++].revents != 0;
                const bool server = items[item++].revents != 0;
                const bool whole = state == State::eWhole &&
                                   (!caller || pass(way.first, way.second)) &&
                                   (!server || pass(way.second, way.first));
                if (!whole)
                    closeBoth(way);
                return !whole;
            });
            if (items[0].revents != 0)
                accept(state == State::eWhole);
            m_is = state;
            m_is.notify_all();
        }
        for (const Ends& way : m_ways)
            closeBoth(way);
        m_is = State::eEnd;
        m_is.notify_all();
    }

    void accept(bool whole) {
        const Ends way(accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC),
                       socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (whole &&
            connect(way.second, reinterpret_cast<const sockaddr*>(&m_target), sizeof m_target) == 0)
            m_ways.push_back(way);
        else
            closeBoth(way);
    }

    static bool pass(int from, int to) {
        std::array<char, 65536> buffer{};
        const ssize_t length = recv(from, buffer.data(), buffer.size(), 0);
        return length > 0 &&
               send(to, buffer.data(), static_cast<std::size_t>(length), MSG_NOSIGNAL) == length;
    }

    static void closeBoth(const Ends& way) {
        close(way.first);
        close(way.second);
    }

    const sockaddr_in m_target;
    const int m_listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int m_changed = eventfd(0, EFD_CLOEXEC);
    int m_port = 0;
    std::atomic<State> m_state{State::eWhole}; ///< as it should be
    std::atomic<State> m_is{State::eWhole};
    std::list<Ends> m_ways; ///< the thread's: caller's and server's end of each
    std::thread m_thread;
};

} // namespace mirel
