#include "simulated/Memory.h"

#include "simulated/AddressSanitizer.h"
#include "simulated/Scheduler.h"

#include <algorithm>
#include <bitset>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <map>
#include <new>

namespace mirel::simulated {

namespace {

constexpr unsigned char kFreed = 0xdd;

constexpr std::size_t kGranule = 16;
constexpr std::size_t kFilterSize = std::size_t{1} << 16;

/// Says quickly that an address is not in a block that is kept back, which is nearly always so.
std::bitset<kFilterSize> filter;

std::size_t filterPlace(std::uintptr_t address) { return address / kGranule % kFilterSize; }

/// The blocks that are kept back, by address, with their sizes.
std::map<std::uintptr_t, std::size_t>& keptBack() {
    static auto& blocks = *new std::map<std::uintptr_t, std::size_t>;
    return blocks;
}

thread_local bool tracked = false;

[[maybe_unused]] void release(void* block) {
    if (!tracked || !block) {
        std::free(block);
        return;
    }
    tracked = false;
    const std::size_t size = malloc_usable_size(block);
    // Not the first word: when it is the table of virtual functions, that of the destroyed class's
    // innermost base, a call still arrives there, and can be reported.
    const std::size_t kept = std::min(size, sizeof(void*));
    std::memset(static_cast<char*>(block) + kept, kFreed, size - kept);
    const auto address = reinterpret_cast<std::uintptr_t>(block);
    if (!keptBack().emplace(address, size).second)
        Scheduler::ofRun()->fail("memory is freed twice");
    for (std::uintptr_t granule = address; granule < address + size; granule += kGranule)
        filter.set(filterPlace(granule));
    tracked = true;
}

} // namespace

void freeRunMemory() {
    for (const auto& [address, size] : keptBack())
        std::free(reinterpret_cast<void*>(address));
    keptBack().clear();
    filter.reset();
}

void trackMemory(bool on) { tracked = on; }

bool isFreed(const void* address) {
    const auto place = reinterpret_cast<std::uintptr_t>(address);
    if (!filter.test(filterPlace(place)))
        return false;
    auto block = keptBack().upper_bound(place);
    if (block == keptBack().begin())
        return false;
    --block;
    return place < block->first + block->second;
}

} // namespace mirel::simulated

#ifndef MIREL_ADDRESS_SANITIZER

void* operator new(std::size_t size) {
    if (void* const block = std::malloc(size > 0 ? size : 1))
        return block;
    throw std::bad_alloc();
}

void* operator new[](std::size_t size) { return operator new(size); }
void operator delete(void* block) noexcept { mirel::simulated::release(block); }
void operator delete[](void* block) noexcept { mirel::simulated::release(block); }
void operator delete(void* block, std::size_t) noexcept { mirel::simulated::release(block); }
void operator delete[](void* block, std::size_t) noexcept { mirel::simulated::release(block); }

#endif
