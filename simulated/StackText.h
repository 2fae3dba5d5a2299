#pragma once

#include <string>

namespace mirel::simulated {

/// The calling stack, innermost first, one indented line for each function, by its name or, where a
/// program does not export that, by its place in the program. Without the functions of this
/// library.
std::string stackText();

} // namespace mirel::simulated
