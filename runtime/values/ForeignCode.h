#pragma once

#include <functional>

namespace mirel {

/// Calls code that is not the framework's, on the calling thread, which may hold a lock: it may
/// wait for anything meanwhile. What it throws passes. Defined by whoever runs threads.
void callForeignCode(const std::function<void()>& call);

} // namespace mirel
