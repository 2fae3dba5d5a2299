// A file of messages for mirel-call.

#include "call/RequestFile.h"
#include "channels/Envelope.h"
#include "framework/MirelException.h"
#include "runtime/values/MessageRules.h"
#include "tests/fuzz/Require.h"

#include <cstdint>
#include <sstream>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t kLimit = 200;
    std::istringstream file(std::string(reinterpret_cast<const char*>(data), size));
    try {
        for (auto& msg : mirel::readRequests(file, "file", "source", kLimit)) {
            mirel::require(mirel::whyRefused(msg).empty(), "the service takes it");
            const std::string bytes = mirel::encode(msg);
            mirel::require(bytes.size() <= kLimit, "its size");
            auto received = mirel::decodeMessage(bytes);
            mirel::require(mirel::encode(received) == bytes, "it arrives as it is");
        }
    } catch (const MirelException& refused) {
        mirel::require(refused.message().starts_with("file line "), "the line is named");
    }
    return 0;
}
