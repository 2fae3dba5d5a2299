#include "testkit/failed.h"

#include <exception>
#include <gtest/gtest.h>

bool mirel::failed() { return std::uncaught_exceptions() > 0 || testing::Test::HasFailure(); }
