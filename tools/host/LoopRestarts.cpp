#include "host/LoopRestarts.h"

#include "channels/ChannelCounters.h"
#include "framework/Logging.h"
#include "framework/Semaphore.h"
#include "runtime/values/ServiceContext.h"

namespace mirel {

namespace {

constexpr int kMostInVain = 10;
constexpr int kPause = 100; // milliseconds

} // namespace

bool LoopRestarts::startAgain() {
    if (!m_context.hasService())
        return false;
    const unsigned long read =
        m_channel.requests + m_channel.timerEvents + m_channel.legacyMessages;
    m_inVain = read == m_readBefore ? m_inVain + 1 : 0;
    m_readBefore = read;
    if (m_inVain > kMostInVain)
        return false;
    if (m_inVain > 0)
        Semaphore(Semaphore::NOT_AVAILABLE, 1, false).take(kPause); // nobody gives it
    logAppUni("HostedExecutor", __FILE__, 2, __LINE__,
              "a failure ended the service's loop, which starts again; %lu times so far",
              ++m_count);
    return true;
}

} // namespace mirel
