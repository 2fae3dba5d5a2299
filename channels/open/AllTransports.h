#pragma once

#include "channels/open/Transports.h"

namespace mirel {

/// All there are, those that were left out when building as well: they say so when one is opened.
Transports allTransports();

} // namespace mirel
