#include "framework/CriticalSection.h"

#include "framework/Semaphore.h"

CriticalSection::CriticalSection(Semaphore& semaphore) {
    m_opaque.make<Semaphore*>(&semaphore);
    semaphore.take(-1);
}

CriticalSection::~CriticalSection() { m_opaque.as<Semaphore*>()->give(); }
