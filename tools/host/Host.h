#pragma once

namespace mirel {

struct HostOptions;

/// Serves until a signal says stop, and writes a summary. Returns the program's exit status: 0, or
/// 1 when the service's loop ended by itself. `MirelException` when it cannot start.
int serve(const HostOptions& options);

} // namespace mirel
