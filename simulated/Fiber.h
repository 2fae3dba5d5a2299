#pragma once

#include <functional>
#include <ucontext.h>

namespace mirel::simulated {

/// A thread of control with a stack of its own, which runs only while it is switched to. All fibers
/// of a simulation take turns on one OS thread, so they share its `thread_local` variables.
class Fiber {
public:
    /// Stands for the caller's own stack, to switch back to.
    Fiber();

    /// Runs `body` when it is switched to for the first time. `body` must neither return nor throw:
    /// it ends by switching away and never being switched to again.
    explicit Fiber(std::function<void()> body);

    Fiber(const Fiber&) = delete;
    Fiber& operator=(const Fiber&) = delete;

    /// Frees the stack, whatever is on it. Not to be called while the fiber runs.
    ~Fiber();

    /// What is on the stack will never be left: it counts as used for ever, for leak detection too.
    void abandon();

    /// Called on this fiber: goes on with `next`; returns when somebody switches back.
    void switchTo(Fiber& next);

private:
    /// What the C++ runtime keeps for a thread about exceptions that are being handled. A fiber may
    /// be left inside a catch block, so each has its own.
    struct ExceptionState {
        void* words[3] = {};
    };

    static void enter();
    void arrived();

    ucontext_t m_context{};
    char* m_stack = nullptr; ///< owned; null for the caller's own
    std::function<void()> m_body;
    ExceptionState m_exceptions;

    // Where AddressSanitizer keeps this fiber's frames, and the stack it is told to expect.
    [[maybe_unused]] void* m_fakeStack = nullptr;
    [[maybe_unused]] const void* m_stackBottom = nullptr;
    [[maybe_unused]] std::size_t m_stackSize = 0;
    Fiber* m_cameFrom = nullptr; ///< the fiber that switched here last
};

} // namespace mirel::simulated
