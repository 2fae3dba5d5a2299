#pragma once

#include <set>
#include <string>

namespace mirel {

// CURVE keys in files. A key is 40 printable characters (Z85); the first word of a line is the key,
// the rest of the line is for people. All functions throw `MirelException` with one clear text.

struct CurveKeys {
    std::string publicKey;
    std::string secretKey;
};

CurveKeys generateCurveKeys();

/// Writes a new pair to NAME.key, readable by the user only, and NAME.pub. Replaces no file.
void writeNewCurveKeys(const std::string& name);

/// Reads a NAME.key. Refuses a file that others than its owner may read or write.
CurveKeys readCurveKeys(const std::string& file);

/// Reads a NAME.pub.
std::string readPublicKey(const std::string& file);

/// Reads the public keys of the callers that are let in, one a line; at least one.
std::set<std::string> readAllowedCallers(const std::string& file);

} // namespace mirel
