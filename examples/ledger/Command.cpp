#include "Command.h"

#include "Ledger.h"

#include <charconv>
#include <cstddef>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace {

constexpr Ledger::Amount kLargestAmount = 1'000'000'000;

std::vector<std::string> words(std::string_view text) {
    std::istringstream in{std::string(text)};
    std::vector<std::string> result;
    for (std::string word; in >> word;)
        result.push_back(word);
    return result;
}

Ledger::Amount amountOf(const std::string& word) {
    Ledger::Amount amount = 0;
    const char* const end = word.data() + word.size();
    const auto [stop, error] = std::from_chars(word.data(), end, amount);
    if (error != std::errc() || stop != end || amount < 1 || amount > kLargestAmount)
        throw std::runtime_error("\"" + word + "\" is not an amount of 1 to " +
                                 std::to_string(kLargestAmount));
    return amount;
}

} // namespace

std::string carryOut(Ledger& ledger, std::string_view text) {
    const std::vector<std::string> command = words(text);
    const auto is = [&command](const char* name, std::size_t arguments) {
        return command.size() == arguments + 1 && command[0] == name;
    };
    if (is("deposit", 2))
        return ledger.deposit(command[1], amountOf(command[2]));
    if (is("withdraw", 2))
        return ledger.withdraw(command[1], amountOf(command[2]));
    if (is("post", 2))
        return ledger.post(command[1], amountOf(command[2]));
    if (is("statement", 1))
        return ledger.statement(command[1]);
    if (is("journal", 0))
        return ledger.journal();
    if (!command.empty() && command[0] == "fail")
        throw std::runtime_error("failed as told: " + std::string(text));
    throw std::runtime_error("no such command: " + std::string(text));
}
