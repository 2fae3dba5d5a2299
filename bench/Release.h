#pragma once

#include <atomic>
#include <cstddef>

namespace bench {

/// How many messages the reader of a channel may have. One thread reads; any may do the rest.
class Release {
public:
    /// Lets so many more be read.
    void add(std::size_t messages);

    /// Lets none be read any more.
    void close();

    /// Waits until the message of that number, counted from 0, may be read. False once closed.
    bool waitFor(std::size_t number) const;

private:
    std::atomic<std::size_t> m_released{0}; ///< since the beginning; counted on by `close`
    std::atomic<bool> m_closed{false};
};

} // namespace bench
