#pragma once

#include "channels/RandomName.h"

#include <string>

namespace mirel {

/// The beginning, up to a point, of subjects that nobody else uses.
inline std::string newInbox() { return "_INBOX." + randomName() + "."; }

} // namespace mirel
