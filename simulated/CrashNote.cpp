#include "simulated/CrashNote.h"

#include "simulated/Scheduler.h"
#include "simulated/Strategy.h"

#include <string>
#include <unistd.h>
#include <utility>

namespace mirel::simulated {

namespace {

constexpr std::size_t kStackSize = 256 * 1024;

} // namespace

CrashNote* CrashNote::installed = nullptr;

CrashNote::CrashNote() : m_stack(std::make_unique<char[]>(kStackSize)) {
    stack_t stack{};
    stack.ss_sp = m_stack.get();
    stack.ss_size = kStackSize;
    sigaltstack(&stack, &m_formerStack);
    installed = this;
    struct sigaction action {};
    action.sa_handler = &CrashNote::handle;
    action.sa_flags = SA_ONSTACK;
    for (std::size_t i = 0; i < std::size(kSignals); ++i)
        sigaction(kSignals[i], &action, &m_former[i]);
}

CrashNote::~CrashNote() {
    for (std::size_t i = 0; i < std::size(kSignals); ++i)
        sigaction(kSignals[i], &m_former[i], nullptr);
    sigaltstack(&m_formerStack, nullptr);
    installed = nullptr;
}

/// Makes a string, which a signal handler should not; but the process is lost, and without a
/// schedule so is what led here.
void CrashNote::handle(int signal) {
    if (const Scheduler* const scheduler = std::exchange(installed->m_watched, nullptr)) {
        const std::string text =
            "the simulated run crashed (signal " + std::to_string(signal) +
            "); to run it again: MIREL_SCHEDULE=" + scheduleText(scheduler->choices()) + "\n";
        [[maybe_unused]] const auto written = write(STDERR_FILENO, text.data(), text.size());
    }
    for (std::size_t i = 0; i < std::size(kSignals); ++i)
        sigaction(kSignals[i], &installed->m_former[i], nullptr);
    raise(signal); // comes when this handler has returned, to whoever handled it before
}

} // namespace mirel::simulated
