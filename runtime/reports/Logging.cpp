#include "framework/Logging.h"

#include "framework/MirelException.h"
#include "runtime/reports/LogControl.h"
#include "runtime/reports/StandardErrorSink.h"
#include "runtime/threads/CallGate.h"
#include "runtime/threads/Mutex.h"
#include "runtime/threads/PendingWakeUps.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <spdlog/logger.h>
#include <utility>

namespace {

constexpr int kErrors = 2;
constexpr int kMostDetailed = 6;

struct Thresholds {
    int general = 3;
    std::map<std::string, int, std::less<>> components;

    int of(std::string_view component) const {
        const auto found = components.find(component);
        return found != components.end() ? found->second : general;
    }

    int highest() const {
        int result = general;
        for (const auto& [component, threshold] : components)
            result = std::max(result, threshold);
        return result;
    }
};

std::optional<int> parseLevel(std::string_view text) {
    if (text.size() != 1 || text[0] < '0' + kErrors || text[0] > '0' + kMostDetailed)
        return std::nullopt;
    return text[0] - '0';
}

std::optional<Thresholds> parseThresholds(std::string_view text) {
    std::string_view rest = text;
    const auto nextItem = [&rest] {
        const auto end = std::min(rest.find(','), rest.size());
        const std::string_view item = rest.substr(0, end);
        rest.remove_prefix(end);
        return item;
    };

    const auto general = parseLevel(nextItem());
    if (!general)
        return std::nullopt;
    Thresholds thresholds{*general, {}};
    while (!rest.empty()) {
        rest.remove_prefix(1);
        const std::string_view item = nextItem();
        const auto nameEnd = std::min(item.find('='), item.size());
        const auto threshold =
            nameEnd == item.size() ? std::nullopt : parseLevel(item.substr(nameEnd + 1));
        const bool isNew =
            nameEnd > 0 && threshold &&
            thresholds.components.emplace(item.substr(0, nameEnd), *threshold).second;
        if (!isNew)
            return std::nullopt;
    }
    return thresholds;
}

std::string whyInvalid(const std::string& text) {
    return "invalid log levels \"" + text +
           "\": expected a level from 2 (errors) to 6 (everything), and after it "
           "\",Component=level\""
           " for each component with another one, as in \"3,ServiceExecutor=6\"";
}

/// What is printed: control characters as \xNN, those of UTF-8's second range included, so that a
/// name that came from outside cannot play tricks on a terminal. A line break stays one, and the
/// next line is indented: no part of a text can pass for a line of its own.
std::string printable(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    unsigned char former = 0;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const bool secondRange = former == 0xc2 && byte >= 0x80 && byte < 0xa0;
        former = byte;
        if (c == '\n') {
            result += "\n    ";
        } else if ((byte < 0x20 && c != '\t') || byte == 0x7f || secondRange) {
            char escaped[5];
            std::snprintf(escaped, sizeof escaped, "\\x%02x", byte);
            result += escaped;
        } else {
            result += c;
        }
    }
    return result;
}

spdlog::level::level_enum spdlogLevel(int level) {
    switch (level) {
    case 3:
        return spdlog::level::warn;
    case 4:
        return spdlog::level::info;
    case 5:
        return spdlog::level::debug;
    default:
        return level < 3 ? spdlog::level::err : spdlog::level::trace;
    }
}

/// Never destroyed, as everything here: threads may log until the process is gone.
spdlog::logger& standardError() {
    static spdlog::logger& logger = []() -> spdlog::logger& {
        auto* const theLogger =
            new spdlog::logger("mirel", std::make_shared<mirel::StandardErrorSink>());
        theLogger->set_level(spdlog::level::trace);
        theLogger->set_pattern("%Y-%m-%d %H:%M:%S.%e %-7l [%t] %v");
        return *theLogger;
    }();
    return logger;
}

void writeToStandardError(const mirel::LogLine& line) {
    const char* const slash = std::strrchr(line.file, '/');
    std::string text = std::string(line.component) + ' ' + (slash ? slash + 1 : line.file) + ':' +
                       std::to_string(line.line) + ": ";
    text.append(line.text);
    standardError().log(spdlogLevel(line.level), printable(text));
}

struct Sink {
    explicit Sink(mirel::LogSink sink) : function(std::move(sink)) {}

    mirel::LogSink function;
    mirel::CallGate gate;
};

/// The highest threshold of any component: what keeps an unwanted line cheap. Everything is let
/// through until MIREL_LOG has been read.
constinit std::atomic<int> highestThreshold{INT_MAX};

/// The process's one log.
class Log {
public:
    static Log& instance() {
        static Log& log = *new Log;
        return log;
    }

    bool wants(std::string_view component, int level) {
        const std::shared_lock lock(m_thresholdsMutex);
        return level <= m_thresholds.of(component);
    }

    void setThresholds(Thresholds thresholds) {
        const std::lock_guard lock(m_thresholdsMutex);
        m_thresholds = std::move(thresholds);
        highestThreshold.store(m_thresholds.highest(), std::memory_order_relaxed);
    }

    void write(const mirel::LogLine& line) {
        const mirel::WakeUpsAtOnce wakeUpsAtOnce;
        // A sink that is being replaced lets nobody in; then there is another one.
        while (!writeTo(currentSink(), line)) {
        }
    }

    mirel::LogSink replaceSink(mirel::LogSink sink) {
        std::shared_ptr<Sink> next = sink ? std::make_shared<Sink>(std::move(sink)) : nullptr;
        {
            const mirel::Lock lock(m_sinkMutex);
            m_sink.swap(next);
        }
        if (!next)
            return {};
        next->gate.close();
        return std::move(next->function);
    }

private:
    Log() {
        Thresholds thresholds;
        const char* const text = std::getenv("MIREL_LOG");
        if (text && *text) {
            if (auto parsed = parseThresholds(text))
                thresholds = *std::move(parsed);
            else
                writeToStandardError({"Logging", __FILE__, kErrors, __LINE__,
                                      "MIREL_LOG is ignored: " + whyInvalid(text)});
        }
        setThresholds(std::move(thresholds));
    }

    std::shared_ptr<Sink> currentSink() {
        const mirel::Lock lock(m_sinkMutex);
        return m_sink;
    }

    static bool writeTo(const std::shared_ptr<Sink>& sink, const mirel::LogLine& line) {
        if (!sink) {
            writeToStandardError(line);
            return true;
        }
        const mirel::CallPass pass(sink->gate);
        if (pass)
            sink->function(line);
        return static_cast<bool>(pass);
    }

    // Guarded by m_thresholdsMutex, which clang does not know: no other is shared.
    std::shared_mutex m_thresholdsMutex;
    Thresholds m_thresholds;

    mirel::Mutex m_sinkMutex;
    std::shared_ptr<Sink> m_sink MIREL_GUARDED_BY(m_sinkMutex); ///< null: standard error
};

/// Reads MIREL_LOG, and complains about it, when the process starts.
[[maybe_unused]] const Log& readAtStart = Log::instance();

/// `format` filled in. A text that does not fit the buffer at first is formatted again.
std::string formatted(const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    char buffer[512];
    const int length = std::vsnprintf(buffer, sizeof buffer, format, arguments);
    std::string text;
    if (length < 0) {
        text = format; // better than nothing
    } else if (static_cast<std::size_t>(length) < sizeof buffer) {
        text.assign(buffer, static_cast<std::size_t>(length));
    } else {
        text.resize(static_cast<std::size_t>(length));
        std::vsnprintf(text.data(), text.size() + 1, format, again);
    }
    va_end(again);
    return text;
}

} // namespace

int loggingOnAppUni(const char* component, int level) {
    // Relaxed: there is nothing else to be seen with a threshold, only sooner or later.
    if (level > highestThreshold.load(std::memory_order_relaxed))
        return 0;
    return Log::instance().wants(component, level) ? 1 : 0;
}

void logAppUni(const char* component, const char* file, int level, int line, const char* format,
               ...) {
    va_list arguments;
    va_start(arguments, format);
    const std::string text = formatted(format, arguments);
    va_end(arguments);
    Log::instance().write({component, file, level, line, text});
}

namespace mirel {

void setLogLevels(const std::string& text) {
    auto thresholds = parseThresholds(text);
    if (!thresholds)
        throw MirelException(whyInvalid(text), __FILE__, __LINE__);
    Log::instance().setThresholds(*std::move(thresholds));
}

LogSink setLogSink(LogSink sink) { return Log::instance().replaceSink(std::move(sink)); }

} // namespace mirel
