#include "framework/MirelException.h"

MirelException::MirelException(const std::string& message, const char* file, int line)
    : m_message(message),
      m_file(file),
      m_line(line) {}

MirelException::MirelException(const std::string& message, const char* file, int line,
                               MirelException& cause)
    : m_message(message),
      m_file(file),
      m_line(line),
      m_cause(std::make_shared<const MirelException>(cause)) {}

MirelException::MirelException(const MirelException&) = default;
MirelException& MirelException::operator=(const MirelException&) = default;
MirelException::~MirelException() = default;

const char* MirelException::what() const noexcept { return m_message.c_str(); }

const std::string& MirelException::message() const { return m_message; }

const std::string& MirelException::file() const { return m_file; }

int MirelException::line() const { return m_line; }

const MirelException* MirelException::cause() const { return m_cause.get(); }
