#pragma once

class Semaphore;

/// Holds one unit of a semaphore for the length of a scope.
class CriticalSection {
public:
    /// Takes the semaphore, waiting without limit.
    explicit CriticalSection(Semaphore& semaphore);

    /// Gives it back.
    ~CriticalSection();

    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

private:
    Semaphore& m_semaphore;
};
