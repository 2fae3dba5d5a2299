#include "framework/MirelException.h"

#include <memory>

namespace {

struct State {
    std::string message;
    std::string file;
    int line;
    std::shared_ptr<const MirelException> cause; ///< null: none
};

} // namespace

MirelException::MirelException(const std::string& message, const char* file, int line) {
    m_opaque.make<State>(message, file, line, nullptr);
}

MirelException::MirelException(const std::string& message, const char* file, int line,
                               MirelException& cause) {
    m_opaque.make<State>(message, file, line, std::make_shared<const MirelException>(cause));
}

MirelException::MirelException(const MirelException& other) : std::exception(other) {
    m_opaque.make<State>(other.m_opaque.as<State>());
}

MirelException& MirelException::operator=(const MirelException& other) {
    m_opaque.as<State>() = other.m_opaque.as<State>();
    return *this;
}

MirelException::~MirelException() { m_opaque.destroy<State>(); }

const char* MirelException::what() const noexcept { return message().c_str(); }
const std::string& MirelException::message() const { return m_opaque.as<State>().message; }
const std::string& MirelException::file() const { return m_opaque.as<State>().file; }
int MirelException::line() const { return m_opaque.as<State>().line; }
const MirelException* MirelException::cause() const { return m_opaque.as<State>().cause.get(); }
