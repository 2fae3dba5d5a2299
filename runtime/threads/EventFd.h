#pragma once

namespace mirel {

/// A flag that a thread can wait for together with sockets.
class EventFd {
public:
    /// Throws `std::system_error`.
    EventFd();
    ~EventFd();

    EventFd(const EventFd&) = delete;
    EventFd& operator=(const EventFd&) = delete;

    /// Makes the descriptor readable until `clear`. Any thread; never waits.
    void set() noexcept;
    void clear() noexcept;

    int descriptor() const { return m_descriptor; }

private:
    const int m_descriptor;
};

} // namespace mirel
