#include "testkit/demo/checkAccount.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace mirel {

AccountRuns checkAccount(const std::string& file, long last, const std::set<pid_t>& hosts) {
    std::ifstream in(file);
    AccountRuns runs;
    long seen = 0, balance = 0, previous = 0;
    pid_t host = 0;
    for (std::string line; std::getline(in, line);) {
        const auto check = [&](bool good, const std::string& what) {
            if (!good)
                throw std::runtime_error(file + ", \"" + line + "\": " + what);
        };
        std::istringstream words(line);
        pid_t now = 0;
        long number = 0, claimedLast = 0, claimedBalance = 0;
        words >> now >> number >> claimedLast >> claimedBalance;
        check(!words.fail() && words.eof(), "is no line of a host");
        check(hosts.contains(now), "no host of ours has run it");
        check(number <= seen + 1, std::to_string(seen + 1) + " was lost or overtaken");
        // A host that takes over runs again what is not acknowledged, and leaves out the rest.
        check(now != host || number > previous,
              "the same host had run " + std::to_string(previous) + " before it");
        if (now != host)
            ++runs.turns;
        if (number <= seen) {
            ++runs.repeated;
        } else {
            seen = number;
            balance += number;
        }
        check(claimedLast == seen && claimedBalance == balance,
              "the balance is not " + std::to_string(balance));
        host = now;
        previous = number;
    }
    if (seen != last)
        throw std::runtime_error(file + ": " + std::to_string(seen) + " postings instead of " +
                                 std::to_string(last));
    return runs;
}

} // namespace mirel
