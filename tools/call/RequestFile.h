#pragma once

#include "framework/CommsChannelDataContainerMessage.h"

#include <cstddef>
#include <istream>
#include <string>
#include <vector>

namespace mirel {

/// Reads messages, one JSON object a line; empty lines are skipped. `MirelException` names the
/// first line that cannot be sent (`name` is the file's) and what is wrong with it. `source` is for
/// lines without a source.
std::vector<CommsChannelDataContainerMessage> readRequests(std::istream& in,
                                                           const std::string& name,
                                                           const std::string& source,
                                                           std::size_t maxMessageBytes);

} // namespace mirel
