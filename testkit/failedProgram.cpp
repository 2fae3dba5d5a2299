#include "testkit/failed.h"

#include <exception>

bool mirel::failed() { return std::uncaught_exceptions() > 0; }
