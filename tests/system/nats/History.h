#pragma once

#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>

namespace mirel {

/// What a service has run, as it wrote it down itself: a line "SOURCE NUMBER" for each request, the
/// numbers of each source being sent from 1 upwards.
class History {
public:
    /// `file` may not be there yet.
    explicit History(const std::string& file) {
        std::ifstream in(file);
        std::string source;
        for (long number = 0; in >> source >> number;) {
            std::set<long>& seen = m_seen[source];
            if (seen.contains(number))
                ++m_repeated;
            else if (!seen.empty() && number < *seen.rbegin())
                ++m_outOfOrder;
            seen.insert(number);
            ++m_count;
        }
    }

    /// Of the numbers up to `last` of each source, "SOURCE-1" and so on.
    unsigned long lost(const std::string& source, unsigned sources, long last) const {
        unsigned long count = 0;
        for (unsigned i = 1; i <= sources; ++i) {
            const auto seen = m_seen.find(source + "-" + std::to_string(i));
            for (long number = 1; number <= last; ++number)
                count += seen == m_seen.end() || !seen->second.contains(number) ? 1 : 0;
        }
        return count;
    }

    unsigned long count() const { return m_count; }
    unsigned long repeated() const { return m_repeated; }

    /// Requests that ran for the first time after a later one of their source.
    unsigned long outOfOrder() const { return m_outOfOrder; }

private:
    std::map<std::string, std::set<long>> m_seen;
    unsigned long m_count = 0;
    unsigned long m_repeated = 0;
    unsigned long m_outOfOrder = 0;
};

} // namespace mirel
