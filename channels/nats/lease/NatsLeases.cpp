#include "channels/nats/lease/NatsLeases.h"

#include "channels/RandomName.h"
#include "channels/nats/read/NatsChannelOptions.h"
#include "channels/nats/wire/NatsConnection.h"
#include "framework/Logging.h"
#include "framework/Threader.h"
#include "runtime/threads/SignalsBlocked.h"

#include <algorithm>
#include <ctime>
#include <vector>

namespace mirel {

namespace {

constexpr int kRoundsPerLifetime = 4;
constexpr const char* kHost = "host-";
constexpr const char* kPartition = "partition-";

std::string keyOf(unsigned partition) { return kPartition + std::to_string(partition); }

} // namespace

NatsLeases::NatsLeases(NatsConnection& connection, const NatsChannelOptions& options)
    : m_connection(connection),
      m_partitions(options.stream.partitions),
      m_lifetime(options.lease),
      m_owner(randomNameOfProcess()),
      m_bucket(connection, connection.address().leases(), options.lease, options.stream.replicas) {
    unsigned long threadId = 0;
    Threader().createThread(threadId, this, "", 0, 0);
}

NatsLeases::~NatsLeases() {
    end();
    waitForThreadCompletion();
}

void NatsLeases::end() {
    const Lock lock(m_mutex);
    m_stop = true;
    m_changed.notify_all();
}

MirelThreadPriority NatsLeases::getThreadPriorityForPlatform() {
    return ePriorityHigh; // who is late loses its partitions
}

std::string NatsLeases::type() { return "mirel-lease"; }

NatsLeases::Time NatsLeases::now() {
    timespec time{};
    clock_gettime(CLOCK_BOOTTIME, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

unsigned long NatsLeases::tenure(unsigned partition) const {
    const Lock lock(m_mutex);
    const auto lease = m_leases.find(partition);
    const bool ours = !m_stop && lease != m_leases.end() && !lease->second.givenBack &&
                      now() < lease->second.validUntil;
    return ours ? lease->second.tenure : 0;
}

bool NatsLeases::isSurplus(unsigned partition) const {
    const Lock lock(m_mutex);
    const auto lease = m_leases.find(partition);
    return lease != m_leases.end() && lease->second.surplus;
}

void NatsLeases::giveBack(unsigned partition) {
    const Lock lock(m_mutex);
    if (const auto lease = m_leases.find(partition); lease != m_leases.end()) {
        lease->second.givenBack = true;
        m_giveBackAsked = true;
        m_changed.notify_all();
    }
}

void NatsLeases::run() {
    const SignalsBlocked signalsBlocked;
    for (Lock lock(m_mutex); !m_stop; waitForRound(lock)) {
        m_giveBackAsked = false;
        lock.unlock();
        try {
            round();
        } catch (const std::exception& failure) {
            if (loggingOnAppUni("NatsLeases", 4))
                logAppUni("NatsLeases", __FILE__, 4, __LINE__, "leases cannot be renewed now: %s",
                          failure.what());
        }
        lock.lock();
    }
    if (!m_connection.connected())
        return; // they run out by themselves
    try {
        {
            const Lock lock(m_mutex);
            for (auto& [partition, lease] : m_leases)
                lease.givenBack = true;
        }
        releaseGivenBack();
        m_bucket.remove(kHost + m_owner, m_presence);
    } catch (const std::exception&) {
        // The same.
    }
}

void NatsLeases::waitForRound(Lock& lock) {
    const auto next = std::chrono::steady_clock::now() + m_lifetime / kRoundsPerLifetime;
    while (!m_stop && !m_giveBackAsked && lock.waitUntil(m_changed, next)) {
    }
}

void NatsLeases::round() {
    releaseGivenBack();
    m_presence = m_bucket.put(kHost + m_owner, m_owner);
    std::vector<unsigned> held;
    {
        const Lock lock(m_mutex);
        for (const auto& [partition, lease] : m_leases)
            held.push_back(partition);
    }
    for (const unsigned partition : held)
        renew(partition);

    const std::vector<std::string> keys = m_bucket.keys();
    const auto hosts = static_cast<unsigned>(std::count_if(
        keys.begin(), keys.end(), [](const std::string& key) { return key.starts_with(kHost); }));
    const unsigned share = (m_partitions + std::max(hosts, 1U) - 1) / std::max(hosts, 1U);
    chooseSurplus(share);
    for (unsigned partition = 0; partition < m_partitions; ++partition) {
        {
            const Lock lock(m_mutex);
            if (m_leases.size() >= share)
                return;
        }
        if (std::find(keys.begin(), keys.end(), keyOf(partition)) == keys.end())
            seize(partition);
    }
}

void NatsLeases::renew(unsigned partition) {
    std::uint64_t revision = 0;
    {
        const Lock lock(m_mutex);
        revision = m_leases.at(partition).revision;
    }
    const Time asked = now(); // the server counts from its writing, which is later
    auto renewed = m_bucket.update(keyOf(partition), m_owner, revision);
    if (!renewed) {
        // An update whose answer was lost has been made all the same.
        const auto value = m_bucket.get(keyOf(partition));
        if (value && value->text == m_owner)
            renewed = m_bucket.update(keyOf(partition), m_owner, value->revision);
    }
    {
        const Lock lock(m_mutex);
        if (renewed) {
            Lease& lease = m_leases.at(partition);
            lease.revision = *renewed;
            if (now() >= lease.validUntil)
                lease.tenure = ++m_tenures;
            lease.validUntil = asked + m_lifetime;
            return;
        }
        m_leases.erase(partition);
    }
    logAppUni("NatsLeases", __FILE__, 3, __LINE__,
              "partition %u: the lease could not be renewed in time", partition);
}

void NatsLeases::seize(unsigned partition) {
    const Time asked = now();
    const auto revision = m_bucket.create(keyOf(partition), m_owner);
    if (!revision)
        return; // another host was faster
    {
        const Lock lock(m_mutex);
        m_leases[partition] = Lease{*revision, asked + m_lifetime, ++m_tenures};
    }
    if (loggingOnAppUni("NatsLeases", 4))
        logAppUni("NatsLeases", __FILE__, 4, __LINE__, "partition %u is served here now",
                  partition);
}

void NatsLeases::chooseSurplus(unsigned share) {
    const Lock lock(m_mutex);
    unsigned kept = 0;
    for (auto& [partition, lease] : m_leases)
        lease.surplus = ++kept > share;
}

void NatsLeases::releaseGivenBack() {
    std::vector<unsigned> released;
    {
        const Lock lock(m_mutex);
        for (const auto& [partition, lease] : m_leases)
            if (lease.givenBack)
                released.push_back(partition);
    }
    for (const unsigned partition : released) {
        // With its revision: if it has run out and is another's by now, it stays.
        std::uint64_t revision = 0;
        {
            const Lock lock(m_mutex);
            revision = m_leases.at(partition).revision;
        }
        m_bucket.remove(keyOf(partition), revision);
        const Lock lock(m_mutex);
        m_leases.erase(partition);
    }
}

} // namespace mirel
