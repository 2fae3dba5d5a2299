#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace mirel {

/// One line that was logged. The pointers and the text are valid inside the sink only.
struct LogLine {
    const char* component;
    const char* file;
    int level; ///< 2 (errors) to 6 (the most detailed)
    int line;
    std::string_view text;
};

// Which lines are written: those whose level is at most the component's threshold, or, for a
// component that has none of its own, the general one. The general threshold is 3 at first; the
// environment variable MIREL_LOG replaces that when the process starts, in the form that
// `setLogLevels` takes; text of another form is complained of on standard error and ignored. Any
// thread may call these.

/// Sets thresholds from a text such as "4" or "3,ServiceExecutor=6,ServiceThread_MT=5"; components
/// not named get the general one back. `MirelException` when the text is not of this form, and
/// nothing changes.
void setLogLevels(const std::string& text);

/// Where lines go. An empty function (the default) writes them to standard error, with control
/// characters escaped and the further lines of a text indented, and drops what nobody reads. A sink
/// is called by several threads at once and gets the text as it is.
using LogSink = std::function<void(const LogLine&)>;

/// Replaces the sink and returns the one before. When this returns, no thread is inside the former
/// sink any more; so not to be called from inside a sink. What a sink throws reaches whoever logs.
LogSink setLogSink(LogSink sink);

} // namespace mirel
