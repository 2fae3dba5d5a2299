#include "channels/nats/publish/NatsMessageIds.h"

#include "channels/nats/wire/NatsConnectionOptions.h"
#include "channels/nats/wire/NatsOptions.h"
#include "framework/MirelException.h"

#include <array>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>
#include <string_view>
#include <utility>

namespace mirel {

namespace {

using Digest = std::array<unsigned char, 32>; ///< of SHA-256

constexpr std::size_t kIdBytes = 16;

/// Who reads the stream sees ids. So that he cannot try out passwords by them, each trial takes
/// tens of milliseconds.
constexpr int kRounds = 100000;

int sizeOf(std::string_view text) { return static_cast<int>(text.size()); }

void require(bool good) {
    if (!good)
        throw MirelException("OpenSSL cannot make the ids of messages", __FILE__, __LINE__);
}

std::string stretched(const std::string& secret, const std::string& user) {
    Digest digest;
    const std::string salt = "mirel message ids " + user;
    require(PKCS5_PBKDF2_HMAC(secret.data(), sizeOf(secret),
                              reinterpret_cast<const unsigned char*>(salt.data()), sizeOf(salt),
                              kRounds, EVP_sha256(), static_cast<int>(digest.size()),
                              digest.data()) == 1);
    return {digest.begin(), digest.end()};
}

} // namespace

NatsMessageIds::NatsMessageIds(std::string secret) : m_secret(std::move(secret)) {}

NatsMessageIds NatsMessageIds::repeatable(const NatsConnectionOptions& options) {
    return NatsMessageIds(stretched(secretOf(options), options.user));
}

NatsMessageIds NatsMessageIds::unrepeatable() {
    Digest random;
    require(RAND_bytes(random.data(), static_cast<int>(random.size())) == 1);
    return NatsMessageIds({random.begin(), random.end()});
}

std::string NatsMessageIds::of(const std::string& message) const {
    Digest digest;
    require(HMAC(EVP_sha256(), m_secret.data(), sizeOf(m_secret),
                 reinterpret_cast<const unsigned char*>(message.data()), message.size(),
                 digest.data(), nullptr) != nullptr);
    constexpr const char* kDigits = "0123456789abcdef";
    std::string id;
    for (std::size_t i = 0; i < kIdBytes; ++i) {
        id += kDigits[digest.at(i) >> 4U];
        id += kDigits[digest.at(i) & 0xfU];
    }
    return id;
}

} // namespace mirel
