#include "simulated/Strategy.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace mirel::simulated {

namespace {

std::vector<int> parsed(const std::string& schedule) {
    std::vector<int> choices;
    std::istringstream text(schedule);
    for (std::string part; std::getline(text, part, '.');) {
        std::istringstream numbers(part);
        int choice = 0;
        std::size_t count = 1;
        char times = 'x';
        const bool valid = (numbers >> choice) &&
                           (numbers.peek() == EOF || (numbers >> times >> count)) && times == 'x' &&
                           numbers.peek() == EOF && choice >= 0 && count > 0 && count < 1000000;
        if (!valid)
            throw std::invalid_argument("\"" + part + "\" in the schedule \"" + schedule +
                                        "\": expected NUMBER or NUMBERxCOUNT, separated by dots");
        choices.insert(choices.end(), count, choice);
    }
    return choices;
}

class ReplayStrategy : public Strategy {
public:
    explicit ReplayStrategy(std::vector<int> choices) : m_choices(std::move(choices)) {}

    int choose(const ChoicePoint& point) override {
        const auto& candidates = point.candidates;
        if (m_next < m_choices.size()) {
            const int choice = m_choices[m_next++];
            if (std::find(candidates.begin(), candidates.end(), choice) != candidates.end())
                return choice;
            m_misfit = true;
        }
        return point.current >= 0 ? point.current : candidates.front();
    }

    bool nextRun() override { return false; }

    std::string complaint() const override {
        return m_misfit || m_next < m_choices.size()
                   ? "the schedule is that of another program or test, or of another build"
                   : "";
    }

private:
    const std::vector<int> m_choices;
    std::size_t m_next = 0;
    bool m_misfit = false;
};

} // namespace

std::unique_ptr<Strategy> makeReplayStrategy(const std::string& schedule) {
    return std::make_unique<ReplayStrategy>(parsed(schedule));
}

std::string scheduleText(const std::vector<int>& choices) {
    std::string text;
    for (auto run = choices.begin(); run != choices.end();) {
        const auto end = std::find_if(run, choices.end(), [run](int c) { return c != *run; });
        if (!text.empty())
            text += '.';
        text += std::to_string(*run);
        if (end - run > 1)
            text += 'x' + std::to_string(end - run);
        run = end;
    }
    return text;
}

} // namespace mirel::simulated
