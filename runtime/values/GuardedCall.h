#pragma once

#include <cxxabi.h>

namespace mirel {

/// Logs the exception that is being handled at level 2, with its type and text. `what` says whose
/// it is. When the log fails as well, there is nobody left to tell, and this returns.
void logCurrentException(const char* component, const char* what);

/// Calls foreign code on behalf of something that has to go on whatever that code throws: an
/// exception is logged. The unwinding of pthread_exit and cancellation passes, as it must.
template <typename Call>
void callGuarded(const char* component, const char* what, Call&& call) {
    try {
        call();
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) {
        logCurrentException(component, what);
    }
}

} // namespace mirel
