#pragma once

#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <iostream>
#include <stdexcept>
#include <string>

namespace mirel {

namespace fs = std::filesystem;

/// A folder of one test's own.
class TemporaryFolder {
public:
    TemporaryFolder() : m_path((fs::temp_directory_path() / "mirel-XXXXXX").string()) {
        if (!mkdtemp(m_path.data()))
            throw std::runtime_error("no temporary folder");
    }
    ~TemporaryFolder() {
        if (testing::Test::HasFailure())
            std::cerr << "kept: " << m_path << '\n'; // it may tell why
        else
            fs::remove_all(m_path);
    }

    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string path(const std::string& file) const { return m_path + "/" + file; }

private:
    std::string m_path;
};

/// Whether the part occurs in the text; shows both when it does not.
inline testing::AssertionResult contains(const std::string& text, const std::string& part) {
    if (text.find(part) != std::string::npos)
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << '"' << part << "\" is not in: " << text;
}

} // namespace mirel
