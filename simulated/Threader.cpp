#include "framework/Threader.h"

#include "framework/MirelException.h"
#include "framework/Threadable.h"
#include "runtime/threads/ThreadStartHook.h"
#include "runtime/values/GuardedCall.h"
#include "simulated/Scheduler.h"
#include "simulated/ThreadRecord.h"

#include <cstring>
#include <memory>
#include <string>
#include <utility>

using mirel::simulated::Access;
using mirel::simulated::Scheduler;

namespace {

/// Identifiers begin here, so that none is 0, nor looks like one of the system's.
constexpr unsigned long kFirstId = 1;

[[noreturn]] void refuse(const std::string& name, const std::string& why) {
    throw MirelException("thread \"" + name + "\" could not be started: " + why, __FILE__,
                         __LINE__);
}

/// Tells the record that the thread has ended, also when service code has ended it.
class EndMark {
public:
    EndMark(Scheduler& scheduler, mirel::ThreadRecord& record)
        : m_scheduler(scheduler),
          m_record(record) {}
    ~EndMark() {
        if (m_record.thread != m_scheduler.running().number)
            return; // there is another one by now
        m_scheduler.perform({"end of a thread", &m_record});
        m_record.ended = true;
    }

    EndMark(const EndMark&) = delete;
    EndMark& operator=(const EndMark&) = delete;

private:
    Scheduler& m_scheduler;
    mirel::ThreadRecord& m_record;
};

/// What a `Threadable` knows of its thread.
struct ThreadOf {
    unsigned long id = 0;
    std::shared_ptr<mirel::ThreadRecord> record;
};

bool hasEnded(const void* record) { return static_cast<const mirel::ThreadRecord*>(record)->ended; }

} // namespace

// ---- Threadable ------------------------------------------------------------------------------

Threadable::Threadable() {
    m_opaque.make<ThreadOf>();
    if (Scheduler* const scheduler = Scheduler::current())
        scheduler->born(this, "Threadable");
}

Threadable::Threadable(const Threadable& other) : Threadable() {
    const unsigned long id = other.threadId(); // a step, before which the record may change
    m_opaque.as<ThreadOf>() = {id, other.m_opaque.as<ThreadOf>().record};
}

Threadable::~Threadable() {
    if (Scheduler* const scheduler = Scheduler::current())
        scheduler->destroyed(this);
    m_opaque.destroy<ThreadOf>();
}

std::string Threadable::type() { return "mirel-thread"; }

unsigned long Threadable::threadId() const {
    if (Scheduler* const scheduler = Scheduler::current()) {
        scheduler->requireAlive(this, "Threadable::threadId");
        scheduler->perform({"Threadable::threadId", this, Access::read});
    }
    return m_opaque.as<ThreadOf>().id;
}

unsigned long Threadable::currentThreadId() {
    Scheduler* const scheduler = Scheduler::current();
    return scheduler ? static_cast<unsigned long>(scheduler->running().number) + kFirstId : 0;
}

void Threadable::waitForThreadCompletion() {
    Scheduler* const scheduler = Scheduler::current();
    if (!scheduler)
        return;
    scheduler->requireAlive(this, "Threadable::waitForThreadCompletion");
    const auto record = m_opaque.as<ThreadOf>().record; // the object may be gone after the wait
    if (!record)
        return;
    scheduler->perform({"Threadable::waitForThreadCompletion", record.get(), Access::write,
                        &hasEnded, record.get()});
    scheduler->thread(record->thread)->released = true;
}

// ---- Threader --------------------------------------------------------------------------------

Threader::Threader() = default;
Threader::~Threader() = default;

int Threader::createThread(unsigned long& threadId, Threadable* threadable, std::string name, int,
                           int) {
    Scheduler* const scheduler = Scheduler::current();
    if (!scheduler)
        refuse(name, "outside of a simulated run there are no threads");
    scheduler->requireAlive(threadable, "Threader::createThread");
    if (name.empty())
        name = threadable->type();
    scheduler->perform({"Threader::createThread", threadable});
    const auto& hook = scheduler->state.onThreadStart;
    if (const int error = hook ? hook() : 0)
        refuse(name, std::strerror(error));

    auto& threadOf = threadable->m_opaque.as<ThreadOf>();
    const bool restart = threadOf.record != nullptr;
    if (!restart)
        threadOf.record = std::make_shared<mirel::ThreadRecord>();
    const auto record = threadOf.record;
    const int former = restart ? record->thread : -1;
    if (restart && !record->ended && former != scheduler->running().number)
        refuse(name, "the object has a thread that is still running");

    auto& thread = scheduler->spawn(name, [scheduler, threadable, record] {
        const EndMark mark(*scheduler, *record);
        scheduler->requireAlive(threadable, "Threadable::run");
        mirel::callGuarded("Threader", "the body of a thread", [&] { threadable->run(); });
    });
    record->thread = thread.number;
    record->ended = false;
    thread.released = false;
    threadId = static_cast<unsigned long>(thread.number) + kFirstId;
    threadOf.id = threadId;
    return 0;
}

namespace mirel {

void setThreadStartHook(std::function<int()> hook) {
    if (Scheduler* const scheduler = Scheduler::current())
        scheduler->state.onThreadStart = std::move(hook);
}

} // namespace mirel
