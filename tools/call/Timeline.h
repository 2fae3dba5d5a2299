#pragma once

#include <chrono>
#include <fstream>
#include <string>

namespace mirel {

/// How the answers of a load came over time: a CSV file with a line for each step of 100 ms, the
/// seconds from the start until the step's end and the answers within it. Lines are written as
/// answers come, so a pipe shows a load while it runs.
class Timeline {
public:
    /// The start. `MirelException` when the file cannot be written.
    explicit Timeline(std::string file);

    void answered();

    /// Writes the last step. `MirelException` when anything could not be written.
    void finish();

private:
    using Clock = std::chrono::steady_clock;

    void writeStep();
    [[noreturn]] void fail() const;

    const std::string m_name;
    std::ofstream m_file;
    const Clock::time_point m_start;
    long m_steps = 0; ///< written
    unsigned long m_answers = 0;
};

} // namespace mirel
