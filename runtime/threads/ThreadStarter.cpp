#include "runtime/threads/ThreadStarter.h"

#include "runtime/threads/CancellationOff.h"
#include "runtime/threads/Mutex.h"
#include "runtime/threads/SignalsBlocked.h"
#include "runtime/threads/ThreadPriority.h"

#include <condition_variable>
#include <csignal>
#include <cstddef>
#include <sched.h>
#include <unistd.h>

namespace mirel {

namespace {

constexpr std::size_t kStackSize = std::size_t{256} * 1024;

/// One thread to start; lives on its caller's stack.
struct Job {
    pthread_t& thread;
    const pthread_attr_t& attributes;
    void* (*body)(void*);
    void* argument;
    int error = 0;
    bool done = false;
};

bool callerIsAtProcessNice() { return niceValueOf(gettid()) <= niceValueOf(getpid()); }

/// The thread, while it has users.
class Starter {
public:
    /// Never destroyed: threads may be started until the process is gone.
    static Starter& instance() {
        static Starter& starter = *new Starter;
        return starter;
    }

    /// When the thread cannot be made, threads start as they can.
    void addUser() {
        const Lock lock(m_mutex);
        ++m_users;
        if (m_running || !callerIsAtProcessNice())
            return;
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
        pthread_attr_setstacksize(&attributes, kStackSize);
        const SignalsBlocked blocked; // for the new thread, too
        pthread_t thread{};
        if (pthread_create(&thread, &attributes, &Starter::main, this) == 0)
            m_running = true;
        pthread_attr_destroy(&attributes);
    }

    void removeUser() {
        const Lock lock(m_mutex);
        if (--m_users == 0)
            m_changed.notify_all();
    }

    /// False when there is no such thread. Not to be interrupted: the job is on the caller's stack.
    bool start(Job& job) {
        const CancellationOff cancellationOff;
        return handOver(job);
    }

private:
    bool handOver(Job& job) {
        Lock lock(m_mutex);
        if (!m_running)
            return false;
        while (m_job)
            lock.wait(m_changed);
        m_job = &job;
        m_changed.notify_all();
        while (!job.done)
            lock.wait(m_changed);
        return true;
    }

    static void* main(void* self) {
        pthread_setname_np(pthread_self(), "mirel-starter");
        // As the threads that it starts; it was made by any of the process's threads.
        const sched_param noPriority{};
        if (sched_getscheduler(getpid()) == SCHED_OTHER)
            pthread_setschedparam(pthread_self(), SCHED_OTHER, &noPriority);
        static_cast<Starter*>(self)->serve();
        return nullptr;
    }

    void serve() {
        Lock lock(m_mutex);
        for (;;) {
            while (!m_job && m_users > 0)
                lock.wait(m_changed);
            if (!m_job) {
                m_running = false;
                return;
            }
            m_job->error =
                pthread_create(&m_job->thread, &m_job->attributes, m_job->body, m_job->argument);
            m_job->done = true;
            m_job = nullptr;
            m_changed.notify_all();
        }
    }

    Mutex m_mutex;
    std::condition_variable m_changed;
    /// The thread is there, and will look at m_users again.
    bool m_running MIREL_GUARDED_BY(m_mutex) = false;
    unsigned long m_users MIREL_GUARDED_BY(m_mutex) = 0;
    /// Its caller's, who is a user.
    Job* m_job MIREL_GUARDED_BY(m_mutex) = nullptr;
};

/// What the new thread would inherit from the caller.
void copyCallersSettings(pthread_attr_t& attributes) {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    pthread_attr_setsigmask_np(&attributes, &mask);
    cpu_set_t processors;
    if (sched_getaffinity(0, sizeof processors, &processors) == 0)
        pthread_attr_setaffinity_np(&attributes, sizeof processors, &processors);
}

} // namespace

ThreadStarter::ThreadStarter() { Starter::instance().addUser(); }
ThreadStarter::~ThreadStarter() { Starter::instance().removeUser(); }

int ThreadStarter::start(pthread_t& thread, pthread_attr_t& attributes, void* (*body)(void*),
                         void* argument) {
    if (!callerIsAtProcessNice()) {
        copyCallersSettings(attributes);
        Job job{thread, attributes, body, argument};
        if (Starter::instance().start(job))
            return job.error;
    }
    return pthread_create(&thread, &attributes, body, argument);
}

} // namespace mirel
