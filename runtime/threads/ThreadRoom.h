#pragma once

#include <cstddef>
#include <limits>
#include <string>

namespace mirel {

/// How many more threads the system lets this process start, as far as it says so: limits for the
/// user's processes, of the control groups, of the system, and the addresses that stacks need. A
/// snapshot: others take and give threads all the time.
class ThreadRoom {
public:
    static constexpr unsigned long kUnknown = std::numeric_limits<unsigned long>::max();

    /// For stacks of that size. `root` is put before /proc and /sys, for tests. Never fails: what
    /// cannot be read does not count.
    explicit ThreadRoom(std::size_t stackSize, std::string root = "");

    /// `kUnknown` when nothing limits them.
    unsigned long threads() const { return m_threads; }

    /// What leaves no more, for a text, such as "pids.max of the control group /service is 100 and
    /// 40 are taken".
    const std::string& reason() const { return m_reason; }

private:
    void readUsersLimit();
    void readControlGroups();
    void readControlGroup(const std::string& mount, std::string path);
    void readSystemsLimits();
    void readAddresses(std::size_t stackSize);
    void take(const std::string& limit, unsigned long most, unsigned long taken,
              unsigned long ofEach = 1);

    const std::string m_root;
    unsigned long m_threads = kUnknown;
    std::string m_reason;
};

} // namespace mirel
