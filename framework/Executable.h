#pragma once

/// Base of every service object. Several threads may be inside one object at the same time.
class Executable {
public:
    virtual ~Executable() = default;

    /// Handles one expiry of the timer `timerId`, on the calling thread. May throw.
    virtual void timerEvent(int timerId) = 0;
};
