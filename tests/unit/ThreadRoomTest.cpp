#include "runtime/threads/ThreadRoom.h"

#include "testkit/TemporaryFolder.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>

namespace mirel {
namespace {

using Files = std::map<std::string, std::string>;

constexpr std::size_t kMiB = std::size_t{1} << 20;
const unsigned long kNoLimit = ThreadRoom::kUnknown;

ThreadRoom roomWith(const Files& files, std::size_t stackSize = kMiB) {
    const TemporaryFolder root;
    for (const auto& [name, contents] : files) {
        const std::filesystem::path path = root.path(name);
        std::filesystem::create_directories(path.parent_path());
        std::ofstream(path) << contents;
    }
    return ThreadRoom(stackSize, root.path(""));
}

const Files kUser{
    {"proc/self/limits", "Limit  Soft  Hard  Units\nMax processes   100   200   processes\n"},
    {"proc/self/status", "Name:\tx\nUid:\t1000\t0\t0\t0\nCapEff:\t0000000000000001\n"},
    {"proc/self/uid_map", "         0          0 4294967295\n"},
    {"proc/7/status", "Name:\tUid: 5\nUid:\t1000\t0\t0\t0\nThreads:\t30\n"},
    {"proc/8/status", "Uid:\t1001\t0\t0\t0\nThreads:\t90\n"},
    {"proc/9/status", "Uid:\t1000\t0\t0\t0\nThreads:\t8\n"},
};

Files changed(Files files, const std::string& name, const std::string& contents) {
    files[name] = contents;
    return files;
}

TEST(ThreadRoom, IsTheLeastThatAnyLimitLeaves) {
    const std::string root = "Uid:\t0\t0\t0\t0\n";
    const Files group{
        {"proc/self/cgroup", "0::/a/b\n"},         {"sys/fs/cgroup/a/pids.max", "50\n"},
        {"sys/fs/cgroup/a/pids.current", "20\n"},  {"sys/fs/cgroup/a/b/pids.max", "max\n"},
        {"sys/fs/cgroup/a/b/pids.current", "3\n"},
    };
    const std::tuple<const char*, Files, unsigned long> worlds[] = {
        {"nothing known", {}, kNoLimit},
        {"a user's limit counts the user's threads", kUser, 62},
        {"no limit", changed(kUser, "proc/self/limits", "Max processes   unlimited   unlimited\n"),
         kNoLimit},
        {"root is exempt", changed(kUser, "proc/self/status", root), kNoLimit},
        {"a container's root is not",
         changed(changed(changed(kUser, "proc/self/status", root), "proc/9/status",
                         root + "Threads:\t1\n"),
                 "proc/self/uid_map", "0 1000 1\n"),
         99},
        {"CAP_SYS_RESOURCE exempts",
         changed(kUser, "proc/self/status", "Uid:\t1000\nCapEff:\t0000000001000000\n"), kNoLimit},
        {"more taken than allowed", changed(kUser, "proc/9/status", "Uid:\t1000\nThreads:\t99\n"),
         0},
        {"a control group's parent", group, 30},
        {"its own limit", changed(group, "sys/fs/cgroup/a/b/pids.max", "13"), 10},
        {"the path of the system outside",
         {{"proc/self/cgroup", "0::/docker/0123\n"},
          {"sys/fs/cgroup/pids.max", "64"},
          {"sys/fs/cgroup/pids.current", "4"}},
         60},
        {"version 1",
         {{"proc/self/cgroup", "8:memory:/m\n7:pids:/p\n"},
          {"sys/fs/cgroup/pids/p/pids.max", "33"},
          {"sys/fs/cgroup/pids/p/pids.current", "3"},
          {"sys/fs/cgroup/pids/m/pids.max", "5"}},
         30},
        {"the system's threads",
         {{"proc/loadavg", "0.15 0.39 1.36 1/89 13064\n"},
          {"proc/sys/kernel/threads-max", "200\n"},
          {"proc/sys/kernel/pid_max", "189\n"}},
         100},
        {"two mappings for each stack",
         {{"proc/sys/vm/max_map_count", "103\n"}, {"proc/self/maps", "a\nb\nc\n"}},
         50},
        {"addresses for stacks",
         {{"proc/self/limits", "Max address space  1073741824  unlimited  bytes\n"},
          {"proc/self/status", "VmSize:\t  524288 kB\n"}},
         512},
    };
    for (const auto& [name, files, threads] : worlds) {
        SCOPED_TRACE(name);
        const ThreadRoom room = roomWith(files);
        if (threads == kNoLimit && sizeof(void*) == 4) // whose addresses are always limited
            EXPECT_GT(room.threads(), 1000U);
        else
            EXPECT_EQ(room.threads(), threads) << room.reason();
        EXPECT_EQ(room.reason().empty(), room.threads() == kNoLimit);
    }
}

TEST(ThreadRoom, SaysWhatLeavesNoMore) {
    EXPECT_EQ(roomWith(kUser).reason(),
              "the limit of the user's processes (ulimit -u) is 100 and 38 are taken");
}

} // namespace
} // namespace mirel
