#include "call/Timeline.h"

#include "framework/MirelException.h"

#include <cerrno>
#include <iomanip>
#include <system_error>
#include <utility>

namespace mirel {

namespace {

constexpr std::chrono::milliseconds kStep{100};

} // namespace

Timeline::Timeline(std::string file)
    : m_name(std::move(file)),
      m_file(m_name),
      m_start(Clock::now()) {
    m_file << std::fixed << std::setprecision(1) << "seconds,answers" << std::endl;
    if (!m_file)
        fail();
}

void Timeline::answered() {
    const auto past = (Clock::now() - m_start) / kStep;
    while (m_steps < past)
        writeStep();
    ++m_answers;
}

void Timeline::finish() {
    writeStep();
    if (!m_file)
        fail();
}

void Timeline::writeStep() {
    const std::chrono::duration<double> end = ++m_steps * kStep;
    m_file << end.count() << ',' << std::exchange(m_answers, 0) << std::endl;
}

void Timeline::fail() const {
    throw MirelException(m_name + ": " + std::generic_category().message(errno), __FILE__,
                         __LINE__);
}

} // namespace mirel
