#pragma once

/// Priority of a thread, low to high. Passed by value and compared as a number; the pool keeps
/// threads of the three priorities below. The type holds every int, so that a value from outside
/// (a message, a caller's mistake) can be carried to the place that refuses it.
enum MirelThreadPriority : int {
    ePriorityLow = 0,
    ePriorityNormal = 1, ///< the default
    ePriorityHigh = 2,
};
