#pragma once

#include <csignal>
#include <iterator>
#include <memory>

namespace mirel::simulated {

class Scheduler;

/// While it lives, a signal that ends the process (a bad pointer, `abort`, `std::terminate`) first
/// writes the schedule of the present run to standard error, so that the run can be repeated in a
/// debugger. One at a time.
class CrashNote {
public:
    CrashNote();
    ~CrashNote();

    CrashNote(const CrashNote&) = delete;
    CrashNote& operator=(const CrashNote&) = delete;

    /// Whose run it is; null: none.
    void watch(const Scheduler* scheduler) { m_watched = scheduler; }

private:
    static constexpr int kSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};

    static void handle(int signal);

    static CrashNote* installed;

    const Scheduler* m_watched = nullptr;
    struct sigaction m_former[std::size(kSignals)];
    std::unique_ptr<char[]> m_stack; ///< the one that ran may have overflowed
    stack_t m_formerStack{};
};

} // namespace mirel::simulated
