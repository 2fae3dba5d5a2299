#include "testkit/waitForLines.h"

#include <array>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace mirel {

namespace {

constexpr int kSilenceMs = 60000;

} // namespace

bool waitForLines(const std::string& file, unsigned long count, const std::string& text) {
    const std::string folder = std::filesystem::path(file).parent_path();
    const int watch = inotify_init1(IN_CLOEXEC);
    inotify_add_watch(watch, folder.c_str(), IN_MODIFY | IN_CREATE);
    pollfd changed{watch, POLLIN, 0};
    std::ifstream in;
    std::string line;
    unsigned long seen = 0;
    for (bool silent = false; !silent;) {
        if (!in.is_open())
            in.open(file);
        in.clear();
        for (char next = 0; in.get(next);) {
            if (next != '\n') {
                line += next;
                continue;
            }
            seen += line.find(text) != std::string::npos ? 1 : 0;
            line.clear();
        }
        if (seen >= count)
            break;
        std::array<char, 4096> events{};
        silent =
            poll(&changed, 1, kSilenceMs) != 1 || read(watch, events.data(), events.size()) <= 0;
    }
    close(watch);
    return seen >= count;
}

} // namespace mirel
