#include "bench/PrivateFolder.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace bench {

PrivateFolder::PrivateFolder()
    : m_path((std::filesystem::temp_directory_path() / "bench-XXXXXX").string()) {
    if (!mkdtemp(m_path.data()))
        throw std::runtime_error("no temporary folder can be made");
}

PrivateFolder::~PrivateFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

} // namespace bench
