#include "simulated/Strategy.h"

#include <algorithm>
#include <map>
#include <random>
#include <set>

namespace mirel::simulated {

namespace {

class RandomStrategy : public Strategy {
public:
    explicit RandomStrategy(std::uint64_t seed) : m_random(seed) {}

    int choose(const ChoicePoint& point) override {
        return point.candidates[static_cast<std::size_t>(m_random() % point.candidates.size())];
    }

    bool nextRun() override { return true; }

private:
    std::mt19937_64 m_random;
};

class PctStrategy : public Strategy {
public:
    PctStrategy(std::uint64_t seed, unsigned changes) : m_random(seed), m_changes(changes) {}

    int choose(const ChoicePoint& point) override {
        if (!point.threads)
            return point.candidates[static_cast<std::size_t>(m_random() % point.candidates.size())];
        const std::size_t sleepers = point.candidates.size() - point.ready;
        if (m_changeSteps.contains(++m_steps)) {
            m_priorities[point.last] = --m_lowest;
            if (sleepers > 0 && m_random() % 2 == 0)
                return point.candidates.back();
        }
        const auto end = point.candidates.end() - static_cast<long>(point.ready > 0 ? sleepers : 0);
        return *std::max_element(point.candidates.begin(), end, [this](int one, int other) {
            return priorityOf(one) < priorityOf(other);
        });
    }

    bool nextRun() override {
        m_longestRun = std::max(m_longestRun, m_steps);
        m_steps = 0;
        m_lowest = 0;
        m_priorities.clear();
        m_changeSteps.clear();
        while (m_changeSteps.size() < std::min<std::size_t>(m_changes, m_longestRun))
            m_changeSteps.insert(1 + static_cast<std::size_t>(m_random() % m_longestRun));
        return true;
    }

private:
    long priorityOf(int thread) {
        const auto [place, isNew] = m_priorities.try_emplace(thread, 0);
        if (isNew)
            place->second = static_cast<long>(m_random() >> 33) + 1;
        return place->second;
    }

    std::mt19937_64 m_random;
    const unsigned m_changes;
    std::size_t m_longestRun = 0; ///< in choices; the first run has no changes and measures it

    // Of one run.
    std::size_t m_steps = 0;
    long m_lowest = 0; ///< below all priorities given so far
    std::map<int, long> m_priorities;
    std::set<std::size_t> m_changeSteps;
};

} // namespace

std::unique_ptr<Strategy> makeRandomStrategy(std::uint64_t seed) {
    return std::make_unique<RandomStrategy>(seed);
}

std::unique_ptr<Strategy> makePctStrategy(std::uint64_t seed, unsigned changes) {
    return std::make_unique<PctStrategy>(seed, changes);
}

} // namespace mirel::simulated
