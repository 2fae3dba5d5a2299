#include "simulated/Strategy.h"

#include <algorithm>
#include <unordered_map>

namespace mirel::simulated {

namespace {

/// Depth-first search over the choices, run by run: each run repeats the path of the one before it
/// up to the last choice that has an alternative left, takes that, and goes on with as few
/// preemptions as possible. Done once for each number of preemptions from 0, so that what is found
/// first is as simple as can be.
class ExhaustiveStrategy : public Strategy {
public:
    explicit ExhaustiveStrategy(unsigned preemptions) : m_lastBound(preemptions) {}

    int choose(const ChoicePoint& point) override {
        if (m_depth == m_path.size())
            m_path.push_back(newNode(point));
        const Node& node = m_path[m_depth++];
        if (node.state == point.state)
            return node.current();
        m_diverged = true;
        return point.candidates.front();
    }

    std::string complaint() const override {
        return m_diverged
                   ? "a run did not repeat the one before it: what it does depends on something "
                     "else than the order of its steps"
                   : "";
    }

    bool nextRun() override {
        m_depth = 0;
        m_known = false;
        while (!m_path.empty() && !m_path.back().advance())
            m_path.pop_back();
        if (!m_path.empty())
            return true;
        m_covered = static_cast<int>(m_cutByBound ? m_bound : m_lastBound);
        if (!m_cutByBound || m_bound == m_lastBound)
            return false;
        ++m_bound;
        m_cutByBound = false;
        m_seen.clear();
        return true;
    }

    int covered() const override { return m_covered; }

private:
    struct Node {
        std::uint64_t state;
        std::vector<int> choices; ///< in the order in which they are taken
        std::size_t free = 0;     ///< so many of them cost no preemption
        std::size_t taken = 0;
        unsigned preemptions = 0; ///< before this choice

        int current() const { return choices[taken]; }
        bool advance() { return ++taken < choices.size(); }
        unsigned preemptionsAfter() const { return preemptions + (taken < free ? 0 : 1); }
    };

    Node newNode(const ChoicePoint& point) {
        Node node;
        node.state = point.state;
        node.preemptions = m_path.empty() ? 0 : m_path.back().preemptionsAfter();
        node.choices = point.candidates;
        node.free = point.ready > 0 ? point.ready : point.candidates.size();
        if (point.current >= 0) {
            const auto own = std::find(node.choices.begin(), node.choices.end(), point.current);
            std::rotate(node.choices.begin(), own, own + 1);
            node.free = 1;
        }
        // Once a run has come to a known moment, all that follows is known as well.
        m_known = m_known || isKnown(point, node.preemptions);
        if (m_known) {
            node.choices.resize(1);
        } else if (node.preemptions == m_bound && node.free < node.choices.size()) {
            m_cutByBound = true;
            node.choices.resize(node.free);
        }
        return node;
    }

    bool isKnown(const ChoicePoint& point, unsigned preemptions) {
        const auto [place, isNew] = m_seen.try_emplace(point.state, preemptions);
        if (!isNew && place->second <= preemptions)
            return true;
        place->second = preemptions;
        return false;
    }

    const unsigned m_lastBound;
    unsigned m_bound = 0;
    int m_covered = -1;
    bool m_cutByBound = false; ///< with this bound; if not, a higher one finds nothing new

    std::vector<Node> m_path;
    std::size_t m_depth = 0; ///< of the run, in m_path
    bool m_known = false;    ///< of the run
    bool m_diverged = false;

    /// The fewest preemptions with which each moment was reached.
    std::unordered_map<std::uint64_t, unsigned> m_seen;
};

} // namespace

std::unique_ptr<Strategy> makeExhaustiveStrategy(unsigned preemptions) {
    return std::make_unique<ExhaustiveStrategy>(preemptions);
}

} // namespace mirel::simulated
