#include "framework/Semaphore.h"

#include "framework/MirelException.h"
#include "runtime/threads/Units.h"

#include <string>

const int Semaphore::NOT_AVAILABLE = 0;

Semaphore::Semaphore(int initial, int maximum, bool) {
    if (maximum < 1 || maximum > 65535 || initial < 0 || initial > maximum)
        throw MirelException("semaphore with " + std::to_string(initial) + " of " +
                                 std::to_string(maximum) +
                                 " units: 1 to 65535 are possible, of which 0 or more are free",
                             __FILE__, __LINE__);
    m_opaque.make<mirel::Units>(initial, maximum);
}

Semaphore::~Semaphore() { m_opaque.destroy<mirel::Units>(); }

bool Semaphore::take(int timeout) { return m_opaque.as<mirel::Units>().take(timeout); }
void Semaphore::give() { m_opaque.as<mirel::Units>().give(); }
