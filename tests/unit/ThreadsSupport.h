#pragma once

#include "framework/Threadable.h"
#include "framework/Threader.h"
#include "tests/unit/Support.h"

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <utility>

/// An object whose body is a function.
class Body : public Threadable {
public:
    explicit Body(std::function<void(Body&)> body, int priority = 1)
        : m_body(std::move(body)),
          m_priority(priorityOf(priority)) {}

    void run() override { m_body(*this); }
    MirelThreadPriority getThreadPriorityForPlatform() override { return m_priority; }

private:
    const std::function<void(Body&)> m_body;
    const MirelThreadPriority m_priority;
};

inline unsigned long start(Threadable& threadable, const std::string& name = "") {
    unsigned long id = 0;
    EXPECT_EQ(Threader().createThread(id, &threadable, name, 1, 0), 0);
    return id;
}

inline void runToItsEnd(std::function<void(Body&)> body, int priority = 1,
                        const std::string& name = "") {
    Body threadable(std::move(body), priority);
    start(threadable, name);
    threadable.waitForThreadCompletion();
}
