#pragma once

#include <string>

namespace mirel {

/// 64 random bits in hexadecimal: nobody guesses them, and nobody else has the same.
std::string randomName();

/// The same with the process in front, for people who read it.
std::string randomNameOfProcess();

/// Of a caller that was not given a name. Who knows it could take the caller's answers.
std::string randomCallerName();

/// Of what a caller sends that was not given a source: readable, and another one for each process.
/// No secret.
std::string randomSourceName();

} // namespace mirel
