#pragma once

#include <mutex>
#include <spdlog/sinks/base_sink.h>
#include <string_view>

namespace mirel {

/// Writes lines to standard error, and never waits for who reads them: what does not go into the
/// pipe, of which the system keeps up to 1 MiB, is dropped, and the next line that does says how
/// many were. Nothing is kept in the process that its end could lose. Any thread.
class StandardErrorSink : public spdlog::sinks::base_sink<std::mutex> {
public:
    StandardErrorSink();

private:
    // With the lock of base_sink held.
    void sink_it_(const spdlog::details::log_msg& message) override;
    void flush_() override {}
    bool writeLine(const spdlog::details::log_msg& message);
    bool write(std::string_view text);

    unsigned long m_dropped = 0;
    bool m_isCut = false; ///< the last line that was begun has no end
};

} // namespace mirel
