#pragma once

#include <string>

namespace mirel {

/// Waits until a file that another process writes, and that need not be there yet, has `count`
/// lines in which the text occurs. False when nothing has been written for a minute.
bool waitForLines(const std::string& file, unsigned long count, const std::string& text = "");

} // namespace mirel
