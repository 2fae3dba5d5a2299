#pragma once

#include "framework/Service.h"

#include <map>
#include <mutex>
#include <string>
#include <vector>

/// A service that keeps accounts. Workers call it for different accounts' owners at the same time;
/// the order of one owner's requests is the library's business, not ours.
class Ledger : public Service {
public:
    using Amount = long long;

    // Requests. Each returns the answer to the caller, or throws `std::runtime_error` with the
    // reason why it refuses, and has changed nothing then.

    std::string deposit(const std::string& account, Amount amount);
    std::string withdraw(const std::string& account, Amount amount);

    /// Adds `number` to the account, if it is the number after that of the account's last posting:
    /// a lost, doubled or overtaken request is found out.
    std::string post(const std::string& account, Amount number);

    std::string statement(const std::string& account) const;

    /// The notes, in the order in which they came.
    std::string journal() const;

    /// The end of a day: logs the totals.
    void timerEvent(int timerId) override;

    /// A legacy message: a note for the journal.
    void handleMessage(const char* data, int length, std::string sourceChannel,
                       CommsChannelIfc* channel, CommsChannelDataContainerMessage& msg) override;

private:
    struct Account {
        Amount balance = 0;
        Amount lastPosting = 0;
    };

    // Guarded by m_mutex.
    mutable std::mutex m_mutex;
    std::map<std::string, Account> m_accounts;
    std::vector<std::string> m_notes;
};
