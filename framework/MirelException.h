#pragma once

#include "framework/Opaque.h"

#include <exception>
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

    // The library does not use these. They are for who reads the report.

    const std::string& message() const;
    const std::string& file() const;
    int line() const;

    /// The failure behind this one, or null.
    const MirelException* cause() const;

private:
    Opaque<96> m_opaque;
};
