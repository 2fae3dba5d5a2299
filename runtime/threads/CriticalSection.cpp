#include "framework/CriticalSection.h"

#include "framework/Semaphore.h"
#include "runtime/threads/PendingWakeUps.h"
#include "runtime/threads/Units.h"

CriticalSection::CriticalSection(Semaphore& semaphore) {
    m_opaque.make<Semaphore*>(&semaphore);
    semaphore.m_opaque.as<mirel::Units>().beginSection();
    semaphore.take(-1);
    mirel::PendingWakeUps::ofThisThread().lockTaken();
}

CriticalSection::~CriticalSection() {
    m_opaque.as<Semaphore*>()->give();
    mirel::PendingWakeUps::ofThisThread().lockReleased();
}
