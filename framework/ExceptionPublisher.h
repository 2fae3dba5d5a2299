#pragma once

class MirelException;

/// Hands failure reports to whoever listens in this process.
class ExceptionPublisher {
public:
    /// The process's one publisher.
    static ExceptionPublisher* instance();

    /// Shows `report` to every subscriber, on the calling thread. Any thread may call.
    void publishException(MirelException& report);

private:
    ExceptionPublisher() = default;
};
