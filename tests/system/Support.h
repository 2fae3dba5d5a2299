#pragma once

#include <filesystem>
#include <gtest/gtest.h>
#include <string>

namespace mirel {

namespace fs = std::filesystem;

/// Whether the part occurs in the text; shows both when it does not.
inline testing::AssertionResult contains(const std::string& text, const std::string& part) {
    if (text.find(part) != std::string::npos)
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << '"' << part << "\" is not in: " << text;
}

} // namespace mirel
