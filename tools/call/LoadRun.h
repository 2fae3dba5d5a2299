#pragma once

namespace mirel {

struct CallOptions;

/// Sends a load and prints what it has measured. True when every request was answered successfully
/// and in order.
bool runLoad(const CallOptions& options);

} // namespace mirel
