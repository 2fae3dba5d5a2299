#include "runtime/values/GuardedCall.h"

#include "framework/Logging.h"
#include "framework/symbolInfo.h"

#include <exception>
#include <string>
#include <typeinfo>

namespace mirel {

namespace {

std::string describeCurrentException() {
    // No type: thrown by another language's runtime.
    const std::type_info* const type = abi::__cxa_current_exception_type();
    std::string text = type ? type->name() : "foreign exception";
    symbolInfo::demangleSymbol(text);
    try {
        throw;
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (const std::exception& failure) {
        if (const char* const what = failure.what()) // a class may return null
            text.append(": ").append(what);
    } catch (...) {
        // Its type is all there is to tell.
    }
    return text;
}

} // namespace

void logCurrentException(const char* component, const char* what) {
    try {
        logAppUni(component, __FILE__, 2, __LINE__, "%s threw %s", what,
                  describeCurrentException().c_str());
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) {
        // Nobody left to tell.
    }
}

} // namespace mirel
