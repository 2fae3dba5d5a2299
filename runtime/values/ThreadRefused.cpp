#include "runtime/values/ThreadRefused.h"

namespace mirel {

namespace {

thread_local unsigned long underWay = 0;

} // namespace

ThreadRefused::ThreadRefused(const std::string& message, const char* file, int line)
    : MirelException(message, file, line) {
    ++underWay;
}

ThreadRefused::ThreadRefused(const ThreadRefused& other) : MirelException(other) { ++underWay; }

ThreadRefused::~ThreadRefused() { --underWay; }

bool ThreadRefused::isUnderWay() { return underWay > 0; }

} // namespace mirel
