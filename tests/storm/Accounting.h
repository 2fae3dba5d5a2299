#pragma once

#include "RoundPlan.h"
#include "tests/unit/Support.h"

#include <sstream>

/// Counts without ordering the threads that count, so that ThreadSanitizer sees only the order that
/// the library makes.
inline int count(std::atomic<int>& counter) {
    return counter.fetch_add(1, std::memory_order_relaxed) + 1;
}

/// What became of one message.
struct MessageRecord {
    const MessagePlan* plan = nullptr;
    int place = 0; ///< from 1 in the order in which its source's messages were read; 0: unread
    std::atomic<bool> sent{false};
    std::atomic<int> starts{0}; ///< of the service code
    std::atomic<int> ends{0};
    std::atomic<int> completions{0}; ///< ends by a normal return
    std::atomic<int> answers{0};
    std::atomic<int> successes{0}; ///< those of them that were no failures
    bool endedLoop = false;        ///< it was the last that its executor read before it failed

    bool read() const { return place > 0; }
    bool request() const { return plan->kind != Kind::timer && plan->kind != Kind::legacy; }
    bool accepted() const { return read() && plan->kind == Kind::request; }

    /// What is wrong at the end, or null.
    const char* fault() const {
        const Action action = plan->action;
        const bool success = accepted() && starts > 0 && !plan->successFails &&
                             (action <= Action::block || action == Action::answerAndThrow ||
                              action == Action::postpone);
        if (starts > (accepted() || (read() && !request()) ? 1 : 0))
            return "ran too often";
        if (ends != starts)
            return "did not end";
        if (answers != (accepted() || (!read() && sent && request()) ? 1 : 0))
            return answers == 0 ? "was not answered" : "was answered too often";
        return successes != (success ? 1 : 0) ? "got the wrong kind of answer" : nullptr;
    }
};

struct Totals {
    long read = 0;
    long completed = 0;
    long failed = 0;
    long dropped = 0;
};

/// Keeps a record of every message of a round and receives the answers. Checks the order of each
/// source's requests while they run, and at the end what became of every message.
class Accounting : public mirel::AnswerSink {
public:
    explicit Accounting(const RoundPlan& plan)
        : m_plan(plan),
          m_records(plan.messages.size()),
          m_sources(plan.executors.size() * kSources) {
        for (std::size_t i = 0; i < m_records.size(); ++i)
            m_records[i].plan = &plan.messages[i];
        if (plan.stopAfter == 0)
            enoughRead.open();
    }

    MessageRecord& record(std::size_t number) { return m_records[number]; }

    /// By the executor's thread.
    MessageRecord& noteRead(std::size_t number) {
        MessageRecord& record = m_records[number];
        record.place = ++sourceOf(record).read;
        if (count(m_reads) == m_plan.stopAfter)
            enoughRead.open();
        return record;
    }
    void noteReport(const MirelException& report) {
        if (report.message().find("caught in ServiceExecutor") == std::string::npos) {
            count(m_threadReports);
            return;
        }
        count(m_executorReports);
        enoughRead.open(); // maybe no more will be read
    }
    void noteInterceptorThrows(bool before) { count(before ? m_refusals : m_failedAfterwards); }
    void noteAnswer(const mirel::Answer& answer) {
        MessageRecord& record = m_records[static_cast<std::size_t>(answer.requestId)];
        if (answer.succeeded)
            count(record.successes);
        count(record.answers);
    }
    void answer(mirel::Answer answer) override {
        if (answer.succeeded &&
            record(static_cast<std::size_t>(answer.requestId)).plan->successFails)
            throw std::runtime_error("successes are refused");
        noteAnswer(answer);
    }

    /// The service code at work on one message; it has failed unless it gets to `complete`.
    class Work {
    public:
        Work(Accounting& accounting, MessageRecord& record) : m_record(record) {
            count(record.starts);
            if (!record.request())
                return;
            Source& source = accounting.sourceOf(record);
            m_running = &source.running;
            if (m_running->exchange(true, std::memory_order_relaxed))
                count(accounting.m_overlaps);
            if (record.place <= source.started)
                count(accounting.m_overtakings);
            source.started = record.place;
        }
        ~Work() {
            if (m_running)
                m_running->store(false, std::memory_order_relaxed);
            count(m_record.ends);
        }
        Work(const Work&) = delete;
        Work& operator=(const Work&) = delete;
        void complete() { count(m_record.completions); }

    private:
        MessageRecord& m_record;
        std::atomic<bool>* m_running = nullptr; ///< the source's, when its requests are ordered
    };

    /// Whether nothing more will happen to the messages read. When no executor reads any more.
    bool settled() const {
        for (const MessageRecord& record : m_records) {
            const bool timer =
                record.read() && record.plan->kind == Kind::timer && !record.endedLoop;
            if ((timer && record.starts == 0) || record.ends != record.starts ||
                (record.accepted() && record.answers == 0))
                return false;
        }
        return true;
    }

    /// Returns what is wrong, or nothing. To be called when all threads have ended. `drained`: all
    /// was settled before the stop, so the stop cannot have dropped anything.
    std::string check(bool drained, Totals& totals) const {
        std::ostringstream faults;
        int thrownInThreads = m_refusals + m_failedAfterwards;
        int thrownInExecutors = 0;
        int dropped = -m_refusals; // requests that an interceptor refused count as failed
        for (const MessageRecord& record : m_records) {
            if (const char* const fault = record.fault())
                faults << "message " << &record - m_records.data() << " of kind "
                       << static_cast<int>(record.plan->kind) << " and action "
                       << static_cast<int>(record.plan->action) << ' ' << fault << '\n';
            totals.read += record.read() ? 1 : 0;
            totals.completed += record.completions;
            if (record.starts > record.completions) {
                ++totals.failed;
                if (record.plan->action != Action::exitThread)
                    ++(record.plan->kind == Kind::legacy ? thrownInExecutors : thrownInThreads);
            } else if (record.read() && record.starts == 0) {
                if (record.accepted() || !record.request())
                    ++dropped;
                else
                    ++totals.dropped; // rightly: nobody serves it
            }
        }
        totals.failed += m_refusals;
        totals.dropped += dropped;

        const auto expect = [&faults](bool holds, const char* what, int found, int due) {
            if (!holds)
                faults << what << ": " << found << ", due: " << due << '\n';
        };
        expect(m_overlaps == 0, "requests of one source at the same time", m_overlaps, 0);
        expect(m_overtakings == 0, "requests that overtook one of their source", m_overtakings, 0);
        expect(m_threadReports == thrownInThreads, "reports by service threads", m_threadReports,
               thrownInThreads);
        // An executor reports what was thrown in it and what it could not hand over. There is no
        // report of what the stop drops.
        const int unhanded = m_executorReports - thrownInExecutors;
        expect(unhanded >= 0 && (drained ? dropped == unhanded : dropped >= unhanded),
               "messages dropped", dropped, unhanded);
        return faults.str();
    }

    Gate enoughRead; ///< opened when it is time to stop

private:
    struct Source {
        int read = 0;
        int started = 0; ///< plain: ThreadSanitizer checks that one request shows it to the next
        std::atomic<bool> running{false};
    };
    Source& sourceOf(const MessageRecord& record) {
        return m_sources[record.plan->executor * kSources +
                         static_cast<std::size_t>(record.plan->source)];
    }

    const RoundPlan& m_plan;
    std::vector<MessageRecord> m_records;
    std::vector<Source> m_sources;
    std::atomic<int> m_reads{0};
    std::atomic<int> m_overlaps{0};
    std::atomic<int> m_overtakings{0};
    std::atomic<int> m_refusals{0}; ///< by interceptors, before the service code
    std::atomic<int> m_failedAfterwards{0};
    std::atomic<int> m_threadReports{0};
    std::atomic<int> m_executorReports{0};
};
