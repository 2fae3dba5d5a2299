#include "Book.h"
#include "runtime/values/ServiceContext.h"

#include <cstdlib>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace {

std::string carryOut(const Book& book, std::string_view text) {
    std::istringstream words{std::string(text)};
    std::string command, account;
    long long number = 0;
    words >> command >> account;
    if (command == "statement")
        return book.statement(account);
    if (command == "post" && words >> number)
        return book.post(account, number);
    throw std::runtime_error("no such command: " + std::string(text));
}

} // namespace

/// What mirel-host calls to make the service that several hosts can serve. The context owns the
/// result.
extern "C" Executable* createBook(mirel::ServiceSetup& setup) {
    const char* const folder = std::getenv("LEDGER_BOOK");
    auto book = std::make_unique<Book>(folder == nullptr ? "" : folder);
    setup.context.addHandler<Book>("Book", "text", &carryOut);
    return book.release();
}
