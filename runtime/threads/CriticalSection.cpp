#include "framework/CriticalSection.h"

#include "framework/Semaphore.h"
#include "runtime/threads/PendingWakeUps.h"

CriticalSection::CriticalSection(Semaphore& semaphore) : m_semaphore(semaphore) {
    m_semaphore.take(-1);
    mirel::PendingWakeUps::ofThisThread().lockTaken();
}

CriticalSection::~CriticalSection() {
    m_semaphore.give();
    mirel::PendingWakeUps::ofThisThread().lockReleased();
}
