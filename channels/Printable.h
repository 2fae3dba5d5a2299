#pragma once

#include <string>
#include <string_view>

namespace mirel {

/// A stranger's name for a line of the log: its first characters, without those that a terminal
/// might obey.
std::string printable(std::string_view name);

} // namespace mirel
