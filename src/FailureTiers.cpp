#include "FailureTiers.h"

#include "framework/Executable.h"
#include "framework/Invoker.h"
#include "framework/Logging.h"
#include "framework/symbolInfo.h"

#include <cstring>
#include <sstream>

namespace {

/// The text of an exception; a class may return null for it.
std::string whatOf(const std::exception& exception) {
    const char* const what = exception.what();
    return what ? what : "";
}

} // namespace

const char* Place::file() const {
    const char* const slash = std::strrchr(path, '/');
    return slash ? slash + 1 : path;
}

CaughtException::CaughtException(MirelException& caught)
    : m_kind("MirelException"),
      m_cause(&caught) {}

CaughtException::CaughtException(std::exception& caught)
    : m_kind("stdlib exception"),
      m_standard(&caught) {}

CaughtException::CaughtException() : m_kind("unknown exception") {}

std::string CaughtException::reportPrefix(const char* className) const {
    const bool known = m_cause || m_standard;
    std::string prefix = known ? "Exception caught in " : "Unknown Exception caught in ";
    prefix += className;
    prefix += ": ";
    if (m_standard) {
        std::string what = whatOf(*m_standard);
        prefix += symbolInfo::demangleSymbol(what);
    }
    return prefix;
}

MirelException CaughtException::report(const std::string& text, const Place& noticed) const {
    return m_cause ? MirelException(text, noticed.file(), noticed.line, *m_cause)
                   : MirelException(text, noticed.file(), noticed.line);
}

void logSurvived(const char* component, const char* step, const CaughtException& caught,
                 const Place& noticed) {
    try {
        logAppUni(component, noticed.file(), 2, noticed.line, "%s",
                  caught.reportPrefix(step).c_str());
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        // The logger fails as well: there is nobody left to tell.
    }
}

std::string classNameOf(const std::type_info& type) {
    std::string name = type.name();
    return symbolInfo::demangleSymbol(name);
}

std::string& appendWorkDetails(std::string& text, const Invoker* invoker,
                               const Executable* executable, const char* data, int timerId) {
    if (invoker)
        text += "\n Invoker used: " + classNameOf(typeid(*invoker));
    if (executable)
        text += "\n Service used: " + classNameOf(typeid(*executable));
    if (timerId != 0) {
        std::ostringstream number;
        number << timerId;
        text += "\n timerId: " + number.str();
    } else {
        text += "\n Original request to Service: ";
        if (data)
            text += data;
    }
    return text;
}
