#pragma once

#include <string>
#include <string_view>

class Ledger;

/// Carries out one request such as "deposit alice 100" and returns the answer. Throws
/// `std::runtime_error` for text that is no command, and what the ledger throws.
std::string carryOut(Ledger& ledger, std::string_view text);
