#pragma once

#include <cstdint>
#include <random>
#include <vector>

constexpr int kSources = 64;

enum class Kind {
    request,
    unoffered, ///< a request for an interface that the service does not offer
    unserved,  ///< a request for a protocol that has no invoker
    timer,
    legacy
};

/// What the service code does with a message. Unless the comment says otherwise, it answers too.
enum class Action {
    answer,
    yield,
    block, ///< until the round's gate is open
    throwReport,
    throwStandard,
    throwOther,
    answerAndThrow,
    discard,   ///< deletes the response unanswered
    postpone,  ///< leaves the answer to another thread
    exitThread ///< ends its OS thread
};

struct MessagePlan {
    std::size_t executor;
    int source;
    int priority; ///< may be out of range
    Kind kind;
    Action action;
    bool successFails; ///< the receiver of answers throws at a success; it takes a failure
};

struct ExecutorPlan {
    bool multiThreaded;
    bool created;   ///< the service, by the context, instead of being there
    int senders;    ///< threads that load it while it runs; 0: it finds all its messages there
    bool endsAlone; ///< before the other one and the pool
};

class Dice {
public:
    explicit Dice(std::uint32_t seed) : m_random(seed) {}
    int below(int end) { return static_cast<int>(m_random() % static_cast<unsigned>(end)); }
    bool oneIn(int times) { return below(times) == 0; }

private:
    std::mt19937 m_random; // whose numbers are prescribed; those of distributions are not
};

/// All that is decided before a round begins; the same for the same seed, on every platform. In a
/// field "...Each" 0 means never, and n that it happens at every nth time.
struct RoundPlan {
    explicit RoundPlan(std::uint32_t seed) : RoundPlan(Dice(seed)) {}

    enum Stop { beforeStart, whileRunning, whenDone };

    int poolSize = 0;
    bool intercepted = false;
    int interceptorThrowsEach = 0;
    int threadStartFailsEach = 0;
    bool detailedLog = false;
    std::vector<ExecutorPlan> executors;
    std::vector<MessagePlan> messages;
    Stop stop = whileRunning;
    int stopAfter = 0;         ///< while running: when this many messages have been read
    bool releaseFirst = false; ///< blocked requests go on before the stop, not at the same time
    bool answerLate = false; ///< answers that were postponed are given when the executors are gone

private:
    explicit RoundPlan(Dice dice) {
        constexpr int kPoolSizes[]{-3, 0, 1, 4, 64};
        poolSize = kPoolSizes[dice.below(5)];
        intercepted = dice.oneIn(2);
        interceptorThrowsEach = dice.oneIn(2) ? 10 + dice.below(40) : 0;
        detailedLog = dice.oneIn(8);
        const bool fatal = dice.oneIn(3); // some messages end their executor's loop
        // Not both: a worker whose thread has ended and gets no new one drops requests without a
        // report.
        const bool exits = dice.oneIn(4);
        threadStartFailsEach = !exits && dice.oneIn(4) ? 2 + dice.below(60) : 0;

        for (int count = dice.oneIn(3) ? 2 : 1; count > 0; --count)
            executors.push_back({!dice.oneIn(4), dice.oneIn(2), dice.below(4), dice.oneIn(2)});
        for (int count = dice.oneIn(8) ? dice.below(4) : dice.below(500); count > 0; --count)
            addMessage(dice, fatal, exits);

        stop = dice.oneIn(16) ? beforeStart : dice.oneIn(3) ? whenDone : whileRunning;
        stopAfter = dice.oneIn(8) ? 0 : dice.below(static_cast<int>(messages.size()) + 1);
        releaseFirst = dice.oneIn(2);
        answerLate = dice.oneIn(2);
    }

    void addMessage(Dice& dice, bool fatal, bool exits) {
        MessagePlan message{};
        message.executor = static_cast<std::size_t>(dice.below(static_cast<int>(executors.size())));
        message.source = dice.below(kSources);
        message.priority = fatal && dice.oneIn(150) ? (dice.oneIn(2) ? 7 : -1) : dice.below(3);

        const int percent = dice.below(100);
        message.kind = percent < 82   ? Kind::request
                       : percent < 84 ? Kind::unoffered
                       : percent < 86 ? Kind::unserved
                       : percent < 95 ? Kind::timer
                                      : Kind::legacy;

        const bool ends =
            exits && message.kind == Kind::request && executors[message.executor].multiThreaded;
        const int action = dice.below(24); // the rest answer
        message.action = action < (ends ? 10 : 9) ? static_cast<Action>(action) : Action::answer;
        if (message.kind == Kind::legacy && !(fatal && dice.oneIn(10)))
            message.action = Action::yield;
        message.successFails = dice.oneIn(20);
        messages.push_back(message);
    }
};
