// What a compiler calls for each access to memory in code that it compiles with -fsanitize=thread.
// Such code, linked with this library instead of the sanitizer's, takes a step of the scheduler at
// each access to an atomic, and is stopped at the first use of memory that the run has freed.

#include "simulated/Memory.h"
#include "simulated/Scheduler.h"

#include <cstddef>
#include <cstdint>

using namespace mirel::simulated;

namespace {

void step(const volatile void* atomic, const char* what, Access access) {
    if (Scheduler* const run = Scheduler::current())
        run->perform({what, const_cast<const void*>(atomic), access});
}

void touchMemory(const void* address) {
    if (isFreed(address))
        if (Scheduler* const run = Scheduler::current())
            run->fail("use of memory that has been freed");
}

// Orders are not simulated: all of them act like the strongest.
constexpr int kOrder = __ATOMIC_SEQ_CST;

template <typename Value>
Value load(const volatile Value* atomic) {
    touchMemory(const_cast<const Value*>(atomic));
    step(atomic, "load of an atomic", Access::read);
    touchMemory(const_cast<const Value*>(atomic));
    return __atomic_load_n(atomic, kOrder);
}

template <typename Value, typename Change>
auto change(volatile Value* atomic, const char* what, Change apply) {
    touchMemory(const_cast<const Value*>(atomic));
    step(atomic, what, Access::write);
    touchMemory(const_cast<const Value*>(atomic));
    return apply();
}

template <typename Value>
int compareExchange(volatile Value* atomic, Value* expected, Value desired) {
    return change(atomic, "compare-exchange of an atomic", [=] {
        return __atomic_compare_exchange_n(atomic, expected, desired, false, kOrder, kOrder);
    });
}

} // namespace

// The compilers' names for these functions cannot be made by templates.
#define MIREL_ATOMICS(bits, Value)                                                                 \
    Value __tsan_atomic##bits##_load(const volatile Value* a, int) { return load(a); }             \
    void __tsan_atomic##bits##_store(volatile Value* a, Value v, int) {                            \
        change(a, "store to an atomic", [=] { __atomic_store_n(a, v, kOrder); });                  \
    }                                                                                              \
    Value __tsan_atomic##bits##_exchange(volatile Value* a, Value v, int) {                        \
        return change(a, "exchange of an atomic",                                                  \
                      [=] { return __atomic_exchange_n(a, v, kOrder); });                          \
    }                                                                                              \
    Value __tsan_atomic##bits##_fetch_add(volatile Value* a, Value v, int) {                       \
        return change(a, "addition to an atomic",                                                  \
                      [=] { return __atomic_fetch_add(a, v, kOrder); });                           \
    }                                                                                              \
    Value __tsan_atomic##bits##_fetch_sub(volatile Value* a, Value v, int) {                       \
        return change(a, "subtraction from an atomic",                                             \
                      [=] { return __atomic_fetch_sub(a, v, kOrder); });                           \
    }                                                                                              \
    int __tsan_atomic##bits##_compare_exchange_strong(volatile Value* a, Value* e, Value d, int,   \
                                                      int) {                                       \
        return compareExchange(a, e, d);                                                           \
    }                                                                                              \
    Value __tsan_atomic##bits##_compare_exchange_val(volatile Value* a, Value e, Value d, int,     \
                                                     int) {                                        \
        compareExchange(a, &e, d);                                                                 \
        return e;                                                                                  \
    }                                                                                              \
    int __tsan_atomic##bits##_compare_exchange_weak(volatile Value* a, Value* e, Value d, int,     \
                                                    int) {                                         \
        return compareExchange(a, e, d);                                                           \
    }

extern "C" {

MIREL_ATOMICS(8, std::uint8_t)
MIREL_ATOMICS(16, std::uint16_t)
MIREL_ATOMICS(32, std::uint32_t)
MIREL_ATOMICS(64, std::uint64_t)

void __tsan_init() {}
void __tsan_read1(void* address) { touchMemory(address); }
void __tsan_read2(void* address) { touchMemory(address); }
void __tsan_read4(void* address) { touchMemory(address); }
void __tsan_read8(void* address) { touchMemory(address); }
void __tsan_read16(void* address) { touchMemory(address); }
void __tsan_write1(void* address) { touchMemory(address); }
void __tsan_write2(void* address) { touchMemory(address); }
void __tsan_write4(void* address) { touchMemory(address); }
void __tsan_write8(void* address) { touchMemory(address); }
void __tsan_write16(void* address) { touchMemory(address); }
void __tsan_unaligned_read2(void* address) { touchMemory(address); }
void __tsan_unaligned_read4(void* address) { touchMemory(address); }
void __tsan_unaligned_read8(void* address) { touchMemory(address); }
void __tsan_unaligned_read16(void* address) { touchMemory(address); }
void __tsan_unaligned_write2(void* address) { touchMemory(address); }
void __tsan_unaligned_write4(void* address) { touchMemory(address); }
void __tsan_unaligned_write8(void* address) { touchMemory(address); }
void __tsan_unaligned_write16(void* address) { touchMemory(address); }
void __tsan_read_range(void* address, std::size_t) { touchMemory(address); }
void __tsan_write_range(void* address, std::size_t) { touchMemory(address); }
void __tsan_vptr_read(void** address) { touchMemory(address); }
void __tsan_vptr_update(void** address, void*) { touchMemory(address); }
void __tsan_func_entry(void*) {}
void __tsan_func_exit() {}

} // extern "C"
