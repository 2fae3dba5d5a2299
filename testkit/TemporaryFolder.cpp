#include "testkit/TemporaryFolder.h"

#include "testkit/failed.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <system_error>

namespace mirel {

namespace fs = std::filesystem;

TemporaryFolder::TemporaryFolder() : m_path((fs::temp_directory_path() / "mirel-XXXXXX").string()) {
    if (!mkdtemp(m_path.data()))
        throw std::system_error(errno, std::generic_category(), m_path);
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    if (failed())
        std::cerr << "kept: " << m_path << '\n';
    else
        fs::remove_all(m_path, ignored);
}

} // namespace mirel
