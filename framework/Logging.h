#pragma once

/// Logging. Levels run from 2 (errors) to 6 (the most detailed). Any thread may call.

/// Nonzero when lines of this level are wanted for this component. A few nanoseconds.
int loggingOnAppUni(const char* component, int level);

/// Formats one line as printf does and writes it, whatever the level: who calls has asked
/// `loggingOnAppUni`, or means the line to be written in any case.
[[gnu::format(printf, 5, 6)]] void logAppUni(const char* component, const char* file, int level,
                                             int line, const char* format, ...);
