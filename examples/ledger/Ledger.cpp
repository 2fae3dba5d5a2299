#include "Ledger.h"

#include "framework/Logging.h"
#include "runtime/values/BusinessFailure.h"

#include <cstddef>
#include <stdexcept>
#include <utility>

namespace {

std::string balanceText(const std::string& account, Ledger::Amount balance) {
    return account + " " + std::to_string(balance);
}

} // namespace

std::string Ledger::deposit(const std::string& account, Amount amount) {
    const std::lock_guard lock(m_mutex);
    return balanceText(account, m_accounts[account].balance += amount);
}

std::string Ledger::withdraw(const std::string& account, Amount amount) {
    const std::lock_guard lock(m_mutex);
    const auto found = m_accounts.find(account);
    const Amount funds = found == m_accounts.end() ? 0 : found->second.balance;
    if (funds < amount)
        throw mirel::BusinessFailure(account + " is short of funds: " + std::to_string(funds));
    return balanceText(account, found->second.balance -= amount);
}

std::string Ledger::post(const std::string& account, Amount number) {
    const std::lock_guard lock(m_mutex);
    const auto found = m_accounts.find(account);
    const Amount next = found == m_accounts.end() ? 1 : found->second.lastPosting + 1;
    if (number != next)
        throw std::runtime_error(account + " expects posting " + std::to_string(next));
    Account& entry = m_accounts[account];
    entry.lastPosting = number;
    return balanceText(account, entry.balance += number);
}

std::string Ledger::statement(const std::string& account) const {
    const std::lock_guard lock(m_mutex);
    const auto found = m_accounts.find(account);
    if (found == m_accounts.end())
        throw std::runtime_error("no account " + account);
    return balanceText(account, found->second.balance);
}

std::string Ledger::journal() const {
    const std::lock_guard lock(m_mutex);
    std::string text;
    for (const std::string& note : m_notes)
        text += (text.empty() ? "" : "; ") + note;
    return text;
}

void Ledger::timerEvent(int timerId) {
    std::size_t accounts = 0;
    Amount total = 0;
    {
        const std::lock_guard lock(m_mutex);
        accounts = m_accounts.size();
        for (const auto& [name, account] : m_accounts)
            total += account.balance;
    }
    logAppUni("Ledger", __FILE__, 4, __LINE__, "day %d ends: %zu accounts, %lld in total", timerId,
              accounts, total);
}

void Ledger::handleMessage(const char* data, int length, std::string sourceChannel,
                           CommsChannelIfc*, CommsChannelDataContainerMessage&) {
    std::string note = sourceChannel + ": " + std::string(data, static_cast<std::size_t>(length));
    const std::lock_guard lock(m_mutex);
    m_notes.push_back(std::move(note));
}
