#pragma once

#include <set>
#include <string>
#include <sys/types.h>

namespace mirel {

struct AccountRuns {
    long repeated = 0; ///< postings that ran once more
    long turns = 0;    ///< of hosts, one after the other
};

/// Reads what the hosts have left in the file of an account of the book, see Book.h, and checks
/// that its postings from 1 to `last` have all run, for the first time in their order, on one of
/// our hosts. The hosts' own sums are not trusted. `std::runtime_error` says what is wrong.
AccountRuns checkAccount(const std::string& file, long last, const std::set<pid_t>& hosts);

} // namespace mirel
