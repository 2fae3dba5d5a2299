#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>

namespace mirel {

/// A word of this process's memory that the kernel reads.
using FutexWord = std::atomic<std::uint32_t>;
static_assert(sizeof(FutexWord) == 4 && FutexWord::is_always_lock_free,
              "the kernel looks at the word itself");

/// None: waits without limit.
using Deadline = std::optional<std::chrono::steady_clock::time_point>;

/// Sleeps unless the word has changed. False when the deadline has passed. May return early.
bool futexWait(FutexWord& word, std::uint32_t value, const Deadline& deadline);

/// Wakes one of the threads that sleep on the address. Does not touch what is there.
void futexWake(const void* address);

// A word that names a thread, its owner: 0 for nobody, else what `futexThread` says, possibly with
// bits added by the kernel. Threads change it from 0 to themselves and back. Where that does not
// go, they ask the kernel.

/// The calling thread, as such a word names it.
std::uint32_t futexThread();

/// Waits until the word is 0 or handed over, and makes the calling thread the owner. Meanwhile the
/// owner runs at the caller's real-time priority if that is better than its own. False when the
/// deadline has passed. True without having waited when the kernel cannot do that: when the thread
/// would wait for itself, or the owner has ended.
bool futexOwn(FutexWord& word, const Deadline& deadline);

/// By the owner: makes the most important waiter the owner, or nobody. Touches nothing of the word
/// after that.
void futexDisown(FutexWord& word);

/// Whether the kernel knows such words.
bool futexHasOwners();

} // namespace mirel
