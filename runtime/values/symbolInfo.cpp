#include "framework/symbolInfo.h"

#include <cstdlib>
#include <cxxabi.h>
#include <memory>

std::string& symbolInfo::demangleSymbol(std::string& name) {
    if (name.size() <= 2)
        return name;
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> readable(
        abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status), &std::free);
    if (status == 0 && readable)
        name = readable.get();
    return name;
}
