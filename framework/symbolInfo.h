#pragma once

#include <string>

/// Readable names for the compiler's symbols.
class symbolInfo {
public:
    /// Replaces a type or symbol name as the compiler writes it by its readable form, and returns
    /// `name`. Text that is no such name stays as it is. So do names of one or two characters (the
    /// compiler's codes for built-in types): short message texts come here as well.
    static std::string& demangleSymbol(std::string& name);
};
