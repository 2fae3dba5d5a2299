#include "simulated/Fiber.h"

#include "simulated/AddressSanitizer.h"

#include <cerrno>
#include <cstring>
#include <cxxabi.h>
#include <new>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>
#include <vector>

#ifdef MIREL_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#include <sanitizer/common_interface_defs.h>
#include <sanitizer/lsan_interface.h>
#endif

namespace mirel::simulated {

namespace {

#ifdef MIREL_ADDRESS_SANITIZER
constexpr std::size_t kStackSize = 4 * 1024 * 1024; // frames are far larger then
#else
constexpr std::size_t kStackSize = 1024 * 1024;
#endif

/// The ABI leaves the layout open beyond its beginning: a pointer and an int, and on ARM another
/// pointer. Both fit.
constexpr std::size_t kExceptionStateSize = sizeof(void*) + sizeof(unsigned) +
#ifdef __ARM_EABI__
                                            sizeof(void*);
#else
                                            0;
#endif

/// Stacks are used again: making one costs more than most runs.
std::vector<char*>& freeStacks() {
    static auto& stacks = *new std::vector<char*>;
    return stacks;
}

/// The lowest page is out of bounds, so that a stack that overflows is seen.
char* newStack() {
    if (!freeStacks().empty()) {
        char* const stack = freeStacks().back();
        freeStacks().pop_back();
        return stack;
    }
    void* const stack = mmap(nullptr, kStackSize, PROT_READ | PROT_WRITE,
                             MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (stack == MAP_FAILED)
        throw std::bad_alloc();
    mprotect(stack, static_cast<std::size_t>(sysconf(_SC_PAGESIZE)), PROT_NONE);
    return static_cast<char*>(stack);
}

void freeStack(char* stack) {
#ifdef MIREL_ADDRESS_SANITIZER
    // What was on it may have been left behind.
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    __asan_unpoison_memory_region(stack + page, kStackSize - page);
#endif
    freeStacks().push_back(stack);
}

thread_local Fiber* entering = nullptr; ///< the fiber that is switched to for the first time

} // namespace

Fiber::Fiber() = default;

Fiber::Fiber(std::function<void()> body)
    : m_stack(newStack()),
      m_body(std::move(body)),
      m_stackBottom(m_stack),
      m_stackSize(kStackSize) {
    getcontext(&m_context);
    m_context.uc_stack.ss_sp = m_stack;
    m_context.uc_stack.ss_size = kStackSize;
    m_context.uc_link = nullptr;
    makecontext(&m_context, &Fiber::enter, 0);
}

Fiber::~Fiber() {
    if (m_stack)
        freeStack(m_stack);
}

void Fiber::abandon() {
#ifdef MIREL_ADDRESS_SANITIZER
    __lsan_register_root_region(m_stack, m_stackSize);
#endif
}

void Fiber::enter() {
    Fiber& self = *entering;
    self.arrived();
    self.m_body();
}

void Fiber::switchTo(Fiber& next) {
    auto* const current = reinterpret_cast<void*>(abi::__cxa_get_globals());
    std::memcpy(m_exceptions.words, current, kExceptionStateSize);
    std::memcpy(current, next.m_exceptions.words, kExceptionStateSize);
    next.m_cameFrom = this;
    entering = &next;
#ifdef MIREL_ADDRESS_SANITIZER
    __sanitizer_start_switch_fiber(&m_fakeStack, next.m_stackBottom, next.m_stackSize);
#endif
    const int error = errno;
    swapcontext(&m_context, &next.m_context);
    errno = error;
    arrived();
}

/// The first thing on a fiber after each switch to it.
void Fiber::arrived() {
#ifdef MIREL_ADDRESS_SANITIZER
    const void* bottom = nullptr;
    std::size_t size = 0;
    __sanitizer_finish_switch_fiber(m_fakeStack, &bottom, &size);
    if (!m_cameFrom->m_stack) { // only now known
        m_cameFrom->m_stackBottom = bottom;
        m_cameFrom->m_stackSize = size;
    }
#endif
}

} // namespace mirel::simulated
