#include "channels/zmq/ZmqSecurity.h"

#include "framework/MirelException.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>
#include <zmq.h>

namespace mirel {

namespace {

constexpr std::size_t kKeyLength = 40;
constexpr std::size_t kKeyBytes = 32;

using KeyText = std::array<char, kKeyLength + 1>;

[[noreturn]] void fail(const std::string& text) { throw MirelException(text, __FILE__, __LINE__); }

std::string systemError() { return std::generic_category().message(errno); }

bool isKey(const std::string& text) {
    std::array<unsigned char, kKeyBytes> bytes{};
    return text.size() == kKeyLength && zmq_z85_decode(bytes.data(), text.c_str());
}

/// The first word of every line that is not empty.
std::vector<std::string> readKeys(const std::string& file) {
    std::ifstream in(file);
    if (!in)
        fail("key file " + file + ": " + systemError());
    std::vector<std::string> keys;
    for (std::string line; std::getline(in, line);) {
        std::string key;
        if (!(std::istringstream(line) >> key))
            continue;
        if (!isKey(key))
            fail("key file " + file + ": a line does not begin with a key of 40 characters");
        keys.push_back(key);
    }
    return keys;
}

std::string readOneKey(const std::string& file) {
    const std::vector<std::string> keys = readKeys(file);
    if (keys.size() != 1)
        fail("key file " + file + ": " + std::to_string(keys.size()) + " keys instead of one");
    return keys.front();
}

void writeKey(const std::string& file, mode_t mode, const std::string& key, const char* remark) {
    const int out = open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (out < 0)
        fail("key file " + file + " cannot be made: " + systemError());
    const std::string line = key + " " + remark + "\n";
    const bool written = write(out, line.data(), line.size()) == static_cast<ssize_t>(line.size());
    const std::string why = written ? "" : systemError();
    close(out);
    if (!written)
        fail("key file " + file + " cannot be written: " + why);
}

} // namespace

CurveKeys generateCurveKeys() {
    KeyText publicKey{};
    KeyText secretKey{};
    if (zmq_curve_keypair(publicKey.data(), secretKey.data()) != 0)
        fail(std::string("no CURVE keys can be made: ") + zmq_strerror(zmq_errno()));
    return {publicKey.data(), secretKey.data()};
}

void writeNewCurveKeys(const std::string& name) {
    const CurveKeys keys = generateCurveKeys();
    writeKey(name + ".key", 0600, keys.secretKey, "secret: keep this file to yourself");
    writeKey(name + ".pub", 0644, keys.publicKey, "public");
}

CurveKeys readCurveKeys(const std::string& file) {
    struct stat status {};
    if (stat(file.c_str(), &status) != 0)
        fail("key file " + file + ": " + systemError());
    if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0)
        fail("key file " + file + ": others may use this secret key; make it private (chmod 600)");
    CurveKeys keys;
    keys.secretKey = readOneKey(file);
    KeyText publicKey{};
    if (zmq_curve_public(publicKey.data(), keys.secretKey.c_str()) != 0)
        fail("key file " + file + ": no secret key: " + zmq_strerror(zmq_errno()));
    keys.publicKey = publicKey.data();
    return keys;
}

std::string readPublicKey(const std::string& file) { return readOneKey(file); }

std::set<std::string> readAllowedCallers(const std::string& file) {
    const std::vector<std::string> keys = readKeys(file);
    if (keys.empty())
        fail("key file " + file + ": no keys, so nobody could call");
    return {keys.begin(), keys.end()};
}

} // namespace mirel
