#pragma once

#include "framework/Logging.h"

// Log lines, each with the place in the source that writes it. Who uses them has a constant
// `kComponent`, the name of the class.
//
// Macros, because what a line tells is not to be worked out when nobody wants the line, and because
// the compiler checks the arguments against the format.

/// Writes a line if lines of its level are wanted: TRACE(level, format, arguments...).
#define TRACE(level, ...)                                                                          \
    do {                                                                                           \
        if (loggingOnAppUni(kComponent, level) != 0)                                               \
            logAppUni(kComponent, __FILE_NAME__, level, __LINE__, __VA_ARGS__);                    \
    } while (false)

/// Writes a line of level 2 in any case: LOG_ERROR(format, arguments...).
#define LOG_ERROR(...) logAppUni(kComponent, __FILE_NAME__, 2, __LINE__, __VA_ARGS__)
