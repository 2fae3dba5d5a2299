#include "framework/Logging.h"

#include "runtime/reports/LogControl.h"
#include "simulated/Scheduler.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

using mirel::simulated::Scheduler;

namespace {

/// Somebody wants to see what happens in this very run.
bool toStandardError() {
    static const bool replay = std::getenv("MIREL_SCHEDULE") != nullptr;
    return replay;
}

} // namespace

int loggingOnAppUni(const char*, int) {
    Scheduler* const scheduler = Scheduler::current();
    return toStandardError() || (scheduler && scheduler->state.onLog) ? 1 : 0;
}

void logAppUni(const char* component, const char* file, int level, int line, const char* format,
               ...) {
    Scheduler* const scheduler = Scheduler::current();
    if (!toStandardError() && !(scheduler && scheduler->state.onLog))
        return;
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (toStandardError())
        std::fprintf(stderr, "thread %d: %s: %s\n", scheduler ? scheduler->running().number : -1,
                     component, text);
    if (scheduler && scheduler->state.onLog)
        scheduler->state.onLog({component, file, level, line, text});
}
