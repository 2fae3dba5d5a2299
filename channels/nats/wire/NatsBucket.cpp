#include "channels/nats/wire/NatsBucket.h"

#include "channels/nats/wire/NatsConnection.h"
#include "channels/nats/wire/NatsHandles.h"

#include <nlohmann/json.hpp>

namespace mirel {

namespace {

constexpr std::chrono::milliseconds kCallPatience{2000};

[[noreturn]] void fail(natsStatus status) { throw NatsError(0, reasonOf(status)); }

void require(natsStatus status) {
    if (status != NATS_OK)
        fail(status);
}

/// Whether the server has answered, if only with a refusal.
bool answered(natsStatus status) {
    return status != NATS_TIMEOUT && status != NATS_NO_RESPONDERS &&
           status != NATS_CONNECTION_CLOSED && status != NATS_CONNECTION_DISCONNECTED;
}

} // namespace

NatsBucket::NatsBucket(NatsConnection& connection, const std::string& name,
                       std::chrono::milliseconds lifetime, int replicas)
    : m_connection(connection),
      m_stream("KV_" + name),
      m_prefix("$KV." + name + ".") {
    jsOptions options;
    jsOptions_Init(&options);
    options.Wait = kCallPatience.count();
    jsCtx* context = nullptr;
    require(natsConnection_JetStream(&context, connection.get(), &options));
    m_context.reset(context);

    kvConfig config;
    kvConfig_Init(&config);
    config.Bucket = name.c_str();
    config.TTL = std::chrono::nanoseconds(lifetime).count();
    config.Replicas = replicas;
    kvStore* store = nullptr;
    if (js_CreateKeyValue(&store, context, &config) != NATS_OK)
        throw NatsError(0, "the bucket " + name +
                               " cannot be made; all hosts of a service must be started with the "
                               "same --lease and --replicas");
    m_store.reset(store);
}

std::optional<NatsBucket::Value> NatsBucket::get(const std::string& key) {
    kvEntry* found = nullptr;
    const natsStatus status = kvStore_Get(&found, m_store.get(), key.c_str());
    const std::unique_ptr<kvEntry, NatsDestroy<kvEntry_Destroy>> entry(found);
    if (status == NATS_NOT_FOUND)
        return std::nullopt;
    require(status);
    return Value{std::string(static_cast<const char*>(kvEntry_Value(found)),
                             static_cast<std::size_t>(kvEntry_ValueLen(found))),
                 kvEntry_Revision(found)};
}

std::uint64_t NatsBucket::put(const std::string& key, const std::string& text) {
    std::uint64_t revision = 0;
    require(kvStore_PutString(&revision, m_store.get(), key.c_str(), text.c_str()));
    return revision;
}

std::optional<std::uint64_t> NatsBucket::create(const std::string& key, const std::string& text) {
    std::uint64_t revision = 0;
    const natsStatus status =
        kvStore_CreateString(&revision, m_store.get(), key.c_str(), text.c_str());
    if (status == NATS_OK)
        return revision;
    if (!answered(status))
        fail(status);
    return std::nullopt;
}

std::optional<std::uint64_t> NatsBucket::update(const std::string& key, const std::string& text,
                                                std::uint64_t revision) {
    std::uint64_t updated = 0;
    const natsStatus status =
        kvStore_UpdateString(&updated, m_store.get(), key.c_str(), text.c_str(), revision);
    if (status == NATS_OK)
        return updated;
    if (!answered(status))
        fail(status);
    return std::nullopt;
}

void NatsBucket::remove(const std::string& key, std::uint64_t revision) {
    m_connection.call("STREAM.PURGE." + m_stream,
                      {{"filter", m_prefix + key}, {"seq", revision + 1}}, kCallPatience);
}

std::vector<std::string> NatsBucket::keys() {
    const auto info = m_connection.call("STREAM.INFO." + m_stream,
                                        {{"subjects_filter", m_prefix + ">"}}, kCallPatience);
    std::vector<std::string> result;
    const auto subjects = info.at("state").find("subjects");
    if (subjects == info.at("state").end())
        return result;
    for (const auto& [subject, count] : subjects->items())
        result.push_back(subject.substr(m_prefix.size()));
    return result;
}

} // namespace mirel
