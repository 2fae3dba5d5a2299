#pragma once

#include "framework/MirelException.h"

#include <cxxabi.h>

#include <exception>
#include <string>
#include <typeinfo>

class Executable;
class Invoker;

/// A place in the source. As std::source_location, which clang 14 does not have.
struct Place {
    /// The place of the call; in a default argument, that of the call that uses it.
    static constexpr Place here(const char* path = __builtin_FILE(), int line = __builtin_LINE()) {
        return {path, line};
    }

    /// The file's own name.
    const char* file() const;

    const char* path;
    int line;
};

/// Something that foreign code threw, sorted into one of three tiers. Lives inside the handler that
/// it is given to, and so does what it refers to.
class CaughtException {
public:
    explicit CaughtException(MirelException& caught);
    explicit CaughtException(std::exception& caught);
    CaughtException(); ///< anything else

    /// The tier's short name, for log lines.
    const char* kind() const { return m_kind; }

    /// Null in all tiers but the first.
    MirelException* cause() const { return m_cause; }

    /// How a report by `className` begins; in the second tier with the exception's own text.
    std::string reportPrefix(const char* className) const;

    /// The report to publish, chained to what was caught in the first tier. `noticed`: where it was
    /// caught.
    MirelException report(const std::string& text, const Place& noticed) const;

private:
    const char* m_kind;
    MirelException* m_cause = nullptr;    ///< set in the first tier only
    std::exception* m_standard = nullptr; ///< set in the second tier only
};

/// Runs `work`; what it throws goes to `handler(const CaughtException&)` instead of to the caller.
/// The handler runs in the order of a catch block: all objects of `work` are gone by then. What the
/// handler throws goes to the caller.
///
/// The unwinding of `pthread_exit` and of cancellation passes: the C library ends a process that
/// stops it.
template <typename Work, typename Handler>
void runInTiers(Work work, Handler handler) {
    try {
        work();
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (MirelException& caught) {
        handler(CaughtException(caught));
    } catch (std::exception& caught) {
        handler(CaughtException(caught));
    } catch (...) {
        handler(CaughtException());
    }
}

/// The last resort: logs that `step` failed, at level 2, and never throws. For exceptions from the
/// reporting of exceptions, and from what must not stop its caller.
void logSurvived(const char* component, const char* step, const CaughtException& caught,
                 const Place& noticed);

/// Runs `work`, named `step` in the log; whatever it throws is logged and goes no further.
template <typename Work>
void survive(const char* component, const char* step, Work work,
             const Place& noticed = Place::here()) {
    runInTiers(work, [&](const CaughtException& caught) {
        logSurvived(component, step, caught, noticed);
    });
}

/// Readable name of a class, for reports.
std::string classNameOf(const std::type_info& type);

/// Appends what a service thread tells about the work that failed: the classes of the invoker and
/// of the service, each if set, and the timer id, or, when that is 0, the request's text (`data` up
/// to its first NUL byte; nothing when null). Returns `text`.
std::string& appendWorkDetails(std::string& text, const Invoker* invoker,
                               const Executable* executable, const char* data, int timerId);
