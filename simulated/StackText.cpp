#include "simulated/StackText.h"

#include "framework/symbolInfo.h"

#include <dlfcn.h>
#include <execinfo.h>
#include <filesystem>
#include <ios>
#include <sstream>

namespace mirel::simulated {

namespace {

constexpr int kDeepest = 48;

bool isOurs(const Dl_info& place) {
    Dl_info own{};
    dladdr(reinterpret_cast<const void*>(&stackText), &own);
    return place.dli_fbase == own.dli_fbase;
}

} // namespace

std::string stackText() {
    void* frames[kDeepest];
    const int count = backtrace(frames, kDeepest);
    std::string text;
    for (int i = 0; i < count; ++i) {
        Dl_info place{};
        if (dladdr(frames[i], &place) == 0 || isOurs(place))
            continue;
        text += "    in ";
        if (place.dli_sname) {
            std::string name = place.dli_sname;
            text += symbolInfo::demangleSymbol(name);
        } else { // for addr2line
            std::ostringstream offset;
            offset << std::hex
                   << static_cast<char*>(frames[i]) - static_cast<char*>(place.dli_fbase);
            text +=
                std::filesystem::path(place.dli_fname).filename().string() + "+0x" + offset.str();
        }
        text += '\n';
    }
    return text;
}

} // namespace mirel::simulated
