#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

class MirelException;
class Semaphore;

namespace mirel {
struct LogLine;
}

/// What the code of a simulated run can ask for. Outside of a run: `MirelException`.
namespace mirel::simulated {

/// Whether the caller is part of a simulated run.
bool running();

/// A moment at which another thread may go on first. `object` is what the next lines use together
/// with other threads: it tells the exhaustive search which orders make a difference. The library's
/// semaphores, threads and channels, `std::mutex`, `std::condition_variable`, `sched_yield` and
/// sleeping are such moments by themselves; atomics are in code compiled for `Mirel::InSteps`.
void point(const void* object, const char* what = "point");

/// Waits until `ready` is true, or for `timeout`, and returns whether it is true. It is called
/// whenever somebody has taken a step, and must change nothing.
bool waitUntil(const std::function<bool()>& ready, const char* what = "waitUntil",
               std::optional<std::chrono::nanoseconds> timeout = std::nullopt);

/// One of 0 to `alternatives` - 1, explored as the order of threads is: for things that may happen
/// or not, such as a failure.
int pick(int alternatives);

/// Ends the run as failed unless `holds`. Also from a check at each step.
void require(bool holds, const std::string& what);

/// Starts a thread of the run. The run goes on until it has ended.
void spawn(const std::string& name, std::function<void()> body);

/// `check` is called before each step of any thread, and when a semaphore has just been given, with
/// all threads standing still. It may look at everything, and calls `require`; it must not wait.
void checkAtEachStep(std::function<void()> check);

/// Called with each line that is logged, of any level, and with each report that is published; what
/// they throw reaches whoever logs or publishes. Without the first, nothing is logged, except that
/// a run by MIREL_SCHEDULE logs to standard error.
void onLog(std::function<void(const LogLine&)> sink);
void onReport(std::function<void(MirelException&)> publisher);

/// Whether a unit is free; for a check at each step of what a lock guards.
bool isFree(Semaphore& semaphore);

/// The virtual clock: 0 when the run begins. It moves only when a thread's time has come, which the
/// scheduler may choose whenever no earlier one is due. `std::chrono`'s clocks and the system's
/// sleeping functions follow it.
std::chrono::nanoseconds now();
void sleepFor(std::chrono::nanoseconds duration);

} // namespace mirel::simulated
