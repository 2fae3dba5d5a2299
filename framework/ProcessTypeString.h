#pragma once

#include <string>

/// What the kinds of thread are called; at most 15 bytes each, so that they fit an OS thread name.
class ProcessTypeString {
public:
    static const std::string SERVICE_EXEC_THREAD;
    static const std::string SERVICE_MT_THREAD;
    static const std::string SERVICE_ST_THREAD;
};
