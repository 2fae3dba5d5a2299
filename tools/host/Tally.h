#pragma once

#include <atomic>

namespace mirel {

/// What a host counts while it serves. Any thread.
struct Tally {
    // Messages that the executor has read.
    std::atomic<unsigned long> requests{0};
    std::atomic<unsigned long> timerEvents{0};
    std::atomic<unsigned long> legacyMessages{0};

    // Answers to requests that the executor has read.
    std::atomic<unsigned long> done{0};
    std::atomic<unsigned long> failed{0};
};

} // namespace mirel
