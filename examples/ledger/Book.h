#pragma once

#include "framework/Executable.h"

#include <string>

/// A service that keeps accounts in files, so that they outlive its host and another host goes on
/// with them. Each account has one source that posts to it, whose requests run one at a time and in
/// order on whichever host; that is all the locking that a file needs.
///
/// A host that dies leaves requests that have run and are not acknowledged. Its successor runs them
/// again; the book knows them by their numbers and counts none twice.
class Book : public Executable {
public:
    /// `folder` is there, and the same for all hosts.
    explicit Book(std::string folder);

    // Requests. Each returns the answer to the caller, or throws `std::runtime_error` with the
    // reason why it refuses, and has changed nothing then.

    /// Adds `number` to the account, unless that has been done. The numbers begin with 1 and leave
    /// none out. Every run leaves a line in the account's file: the host's process, `number`, and
    /// then the last number and the balance.
    std::string post(const std::string& account, long long number) const;

    std::string statement(const std::string& account) const;

    void timerEvent(int timerId) override;

private:
    struct State {
        long long last = 0;
        long long balance = 0;
    };

    std::string fileOf(const std::string& account) const;
    State stateOf(const std::string& account) const;

    const std::string m_folder;
};
