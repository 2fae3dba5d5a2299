#include "bench/FutexHandOver.h"

#include "bench/FutexWord.h"

#include <thread>

namespace bench {

namespace {

using Clock = std::chrono::steady_clock;

/// The beginning and `wasAsleep` are written by the one that wakes, the end by the one woken.
struct HandOver {
    Clock::time_point begin;
    Clock::time_point end;
    bool wasAsleep = false;
};

void wake(FutexWord& other, HandOver& handOver) {
    handOver.begin = Clock::now();
    handOver.wasAsleep = other.wake();
}

void sleep(FutexWord& own, HandOver& handOver) {
    own.sleep();
    handOver.end = Clock::now();
}

} // namespace

FutexHandOvers handOver(std::size_t threads, std::size_t rounds, Placement placement) {
    std::vector<FutexWord> words(threads);
    std::vector<HandOver> handOvers(threads * rounds);
    // Hand-over i wakes thread i % threads.
    const auto takePart = [&](std::size_t self) {
        for (std::size_t i = self; i < handOvers.size(); i += threads) {
            sleep(words[self], handOvers[i]);
            if (i + 1 < handOvers.size())
                wake(words[(i + 1) % threads], handOvers[i + 1]);
        }
    };
    std::vector<std::thread> others;
    for (std::size_t self = 1; self < threads; ++self)
        others.emplace_back([&, self] {
            placeHandler(placement);
            takePart(self);
        });
    const PlacedCaller placed(placement);
    wake(words[0], handOvers[0]); // finds nobody asleep
    takePart(0);
    for (std::thread& other : others)
        other.join();

    FutexHandOvers result;
    result.tried = handOvers.size();
    for (const HandOver& one : handOvers)
        if (one.wasAsleep)
            result.durations.push_back(one.end - one.begin);
    return result;
}

} // namespace bench
