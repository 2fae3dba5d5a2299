#pragma once

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace mirel {

/// Ends the process, which the fuzzer takes for a find, unless the claim holds.
inline void require(bool claim, std::string_view what) {
    if (claim)
        return;
    std::fprintf(stderr, "not so: %.*s\n", static_cast<int>(what.size()), what.data());
    std::abort();
}

} // namespace mirel
