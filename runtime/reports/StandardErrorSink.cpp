#include "runtime/reports/StandardErrorSink.h"

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <string>
#include <unistd.h>

namespace mirel {

namespace {

constexpr int kPipeBytes = 1 << 20; ///< as many as the system usually allows

/// Whether a piece of up to PIPE_BUF bytes can be written without waiting. We are not the only one
/// who writes there, if others have the same standard error: then a write may wait in the end.
bool hasRoom() {
    std::array<pollfd, 1> item{{{STDERR_FILENO, POLLOUT, 0}}};
    return poll(item.data(), item.size(), 0) == 1 && (item[0].revents & POLLOUT) != 0;
}

} // namespace

StandardErrorSink::StandardErrorSink() {
    if (fcntl(STDERR_FILENO, F_GETPIPE_SZ) > 0)               // it is a pipe
        (void)fcntl(STDERR_FILENO, F_SETPIPE_SZ, kPipeBytes); // otherwise it keeps less
}

void StandardErrorSink::sink_it_(const spdlog::details::log_msg& message) {
    if (m_dropped > 0) {
        const std::string text =
            std::to_string(m_dropped) + " lines of the log were dropped, because nobody read them";
        if (writeLine({message.logger_name, spdlog::level::warn, text}))
            m_dropped = 0;
    }
    if (m_dropped > 0 || !writeLine(message))
        ++m_dropped;
}

bool StandardErrorSink::writeLine(const spdlog::details::log_msg& message) {
    spdlog::memory_buf_t line;
    formatter_->format(message, line);
    if (m_isCut && !write("\n"))
        return false;
    return write({line.data(), line.size()});
}

/// False when not all of it has been written.
bool StandardErrorSink::write(std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = hasRoom() ? ::write(STDERR_FILENO, text.data(),
                                                    std::min<std::size_t>(text.size(), PIPE_BUF))
                                          : 0;
        if (written <= 0)
            return false;
        m_isCut = text[static_cast<std::size_t>(written) - 1] != '\n';
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

} // namespace mirel
