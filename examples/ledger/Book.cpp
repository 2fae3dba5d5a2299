#include "Book.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <unistd.h>
#include <utility>

namespace {

constexpr std::streamoff kLongestLine = 100;

std::string answer(const std::string& account, long long balance) {
    return account + " " + std::to_string(balance);
}

} // namespace

Book::Book(std::string folder) : m_folder(std::move(folder)) {
    if (access(m_folder.c_str(), W_OK | X_OK) != 0)
        throw std::runtime_error("LEDGER_BOOK must name a folder for the accounts' files, not \"" +
                                 m_folder + "\"");
}

std::string Book::post(const std::string& account, long long number) const {
    State state = stateOf(account);
    if (number < 1 || number > state.last + 1)
        throw std::runtime_error(account + " expects posting " + std::to_string(state.last + 1));
    if (number > state.last)
        state = {number, state.balance + number};
    std::ostringstream line;
    line << getpid() << ' ' << number << ' ' << state.last << ' ' << state.balance << '\n';
    // In one piece, so that a host that is killed leaves the whole line or nothing.
    std::ofstream file(fileOf(account), std::ios::app);
    if (!(file << line.str() << std::flush))
        throw std::runtime_error(fileOf(account) + " cannot be written");
    return answer(account, state.balance);
}

std::string Book::statement(const std::string& account) const {
    const State state = stateOf(account);
    if (state.last == 0)
        throw std::runtime_error("no account " + account);
    return answer(account, state.balance);
}

void Book::timerEvent(int) {}

std::string Book::fileOf(const std::string& account) const {
    if (account.empty() || account.find_first_of("/.") != std::string::npos)
        throw std::runtime_error("\"" + account + "\" is no name of an account");
    return m_folder + "/" + account;
}

Book::State Book::stateOf(const std::string& account) const {
    std::ifstream file(fileOf(account), std::ios::ate);
    if (!file)
        return {}; // the first posting makes it
    file.seekg(std::max<std::streamoff>(0, file.tellg() - kLongestLine));
    State state;
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        long long host = 0, number = 0;
        words >> host >> number >> state.last >> state.balance; // right at least in the last one
    }
    return state;
}
