#include "runtime/threads/ThreadRoom.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sstream>
#include <utility>

namespace mirel {

namespace {

using Number = unsigned long;

constexpr Number kMapsPerThread = 2; ///< the stack, and the page that guards it
constexpr Number kAddresses32 = 3UL << 30;
constexpr unsigned long long kExemptFromUsersLimit = 1ULL << 21 | 1ULL << 24; ///< capabilities

std::string contentsOf(const std::string& file) {
    std::ifstream in(file);
    return {std::istreambuf_iterator<char>(in), {}};
}

/// What follows `label` at the beginning of a line, as far as a `Value` goes.
template <typename Value = Number>
std::optional<Value> valueAfter(const std::string& text, const std::string& label,
                                std::ios::fmtflags base = std::ios::dec) {
    const std::size_t at = ('\n' + text).find('\n' + label);
    if (at == std::string::npos)
        return std::nullopt;
    std::istringstream in(text.substr(at + label.size()));
    in.setf(base, std::ios::basefield);
    Value value{};
    return in >> value ? std::optional(value) : std::nullopt;
}

/// The number that the file begins with; none for "max".
std::optional<Number> numberIn(const std::string& file) { return valueAfter(contentsOf(file), ""); }

/// Those that run in the whole system. "0.15 0.39 1.36 RUNNABLE/ALL LAST-PID"
Number threadsIn(const std::string& loadAverage) {
    const std::size_t slash = loadAverage.find('/');
    return slash == std::string::npos ? 0
                                      : valueAfter(loadAverage.substr(slash + 1), "").value_or(0);
}

bool isNumber(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](unsigned char c) { return std::isdigit(c); });
}

/// Of all processes that can be seen.
Number threadsOfUser(const std::string& proc, Number user) {
    Number count = 0;
    std::error_code gone;
    for (std::filesystem::directory_iterator it(proc, gone), end; !gone && it != end;
         it.increment(gone)) {
        if (!isNumber(it->path().filename().string()))
            continue;
        const std::string status = contentsOf(it->path().string() + "/status");
        if (valueAfter(status, "Uid:") == user)
            count += valueAfter(status, "Threads:").value_or(0);
    }
    return count;
}

} // namespace

ThreadRoom::ThreadRoom(std::size_t stackSize, std::string root) : m_root(std::move(root)) {
    readUsersLimit();
    readControlGroups();
    readSystemsLimits();
    readAddresses(stackSize);
}

/// `ofEach` is what one thread takes of it.
void ThreadRoom::take(const std::string& limit, Number most, Number taken, Number ofEach) {
    const Number room = (most - std::min(taken, most)) / ofEach;
    if (room >= m_threads)
        return;
    m_threads = room;
    m_reason =
        limit + " is " + std::to_string(most) + " and " + std::to_string(taken) + " are taken";
}

void ThreadRoom::readUsersLimit() {
    const std::string proc = m_root + "/proc";
    const auto most = valueAfter(contentsOf(proc + "/self/limits"), "Max processes");
    const std::string status = contentsOf(proc + "/self/status");
    const auto user = valueAfter(status, "Uid:");
    if (!most || !user)
        return;
    // The kernel exempts the system's own root and capabilities; those of a container do not count.
    Number inside = 0, outside = 0, users = 0;
    std::istringstream map(contentsOf(proc + "/self/uid_map"));
    map >> inside >> outside >> users;
    const auto capabilities =
        valueAfter<unsigned long long>(status, "CapEff:", std::ios::hex).value_or(0);
    const bool isWholeSystem = outside == 0 && users == 4294967295UL;
    if (isWholeSystem && (user == 0UL || (capabilities & kExemptFromUsersLimit) != 0))
        return;
    take("the limit of the user's processes (ulimit -u)", *most, threadsOfUser(proc, *user));
}

void ThreadRoom::readControlGroups() {
    std::istringstream groups(contentsOf(m_root + "/proc/self/cgroup"));
    for (std::string number, controllers, path; std::getline(groups, number, ':') &&
                                                std::getline(groups, controllers, ':') &&
                                                std::getline(groups, path);) {
        if (controllers.empty()) {
            readControlGroup("/sys/fs/cgroup", path);
            readControlGroup("/sys/fs/cgroup/unified", path); // where both versions are used
        } else if (controllers == "pids") {
            readControlGroup("/sys/fs/cgroup/pids", path);
        }
    }
}

/// Those above it limit it, too. In a container the path may be that of the system outside, and
/// only the container's own group be there, at the top.
void ThreadRoom::readControlGroup(const std::string& mount, std::string path) {
    for (;;) {
        const std::string folder = m_root + mount + path;
        const auto most = numberIn(folder + "/pids.max");
        if (most)
            take("pids.max of the control group " + (path.empty() ? "/" : path), *most,
                 numberIn(folder + "/pids.current").value_or(0));
        if (path.empty())
            return;
        path.erase(std::min(path.rfind('/'), path.size()));
    }
}

void ThreadRoom::readSystemsLimits() {
    const std::string proc = m_root + "/proc";
    const Number running = threadsIn(contentsOf(proc + "/loadavg"));
    for (const char* const limit : {"/sys/kernel/threads-max", "/sys/kernel/pid_max"})
        if (const auto most = numberIn(proc + limit))
            take("/proc" + std::string(limit), *most, running);
    const std::string maps = contentsOf(proc + "/self/maps");
    if (const auto most = numberIn(proc + "/sys/vm/max_map_count"))
        take("/proc/sys/vm/max_map_count", *most,
             static_cast<Number>(std::count(maps.begin(), maps.end(), '\n')), kMapsPerThread);
}

void ThreadRoom::readAddresses(std::size_t stackSize) {
    const std::string self = m_root + "/proc/self";
    auto most = valueAfter(contentsOf(self + "/limits"), "Max address space");
    if (sizeof(void*) == 4)
        most = std::min(most.value_or(kAddresses32), kAddresses32);
    if (!most)
        return;
    const Number taken = valueAfter(contentsOf(self + "/status"), "VmSize:").value_or(0); // KiB
    take("the address space in KiB", *most / 1024, taken, std::max<Number>(stackSize / 1024, 1));
}

} // namespace mirel
