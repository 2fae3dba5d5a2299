#pragma once

#include "framework/MirelException.h"

namespace mirel {

/// The system has refused a thread. While this exception is on its way or being handled, a response
/// of a request that has not run, destroyed by the same thread, tells its caller why.
class ThreadRefused : public MirelException {
public:
    ThreadRefused(const std::string& message, const char* file, int line);
    ThreadRefused(const ThreadRefused& other);
    ThreadRefused& operator=(const ThreadRefused&) = default;
    ~ThreadRefused() override;

    /// Whether there is one of the calling thread.
    static bool isUnderWay();
};

} // namespace mirel
