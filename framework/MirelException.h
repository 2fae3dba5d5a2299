#pragma once

#include <exception>
#include <memory>
#include <string>

/// The framework's failure report: a text, the place that wrote it, and the failure behind it.
class MirelException : public std::exception {
public:
    MirelException(const std::string& message, const char* file, int line);

    /// Chained to `cause`, of which a copy is kept.
    MirelException(const std::string& message, const char* file, int line, MirelException& cause);

    MirelException(const MirelException&);
    MirelException& operator=(const MirelException&);
    ~MirelException() override;

    const char* what() const noexcept override;
    const std::string& message() const;
    const std::string& file() const;
    int line() const;

    /// The failure behind this one, or null.
    const MirelException* cause() const;

private:
    std::string m_message;
    std::string m_file;
    int m_line;
    std::shared_ptr<const MirelException> m_cause;
};
