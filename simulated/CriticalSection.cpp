#include "framework/CriticalSection.h"

#include "framework/Semaphore.h"

CriticalSection::CriticalSection(Semaphore& semaphore) : m_semaphore(semaphore) {
    m_semaphore.take(-1);
}

CriticalSection::~CriticalSection() { m_semaphore.give(); }
