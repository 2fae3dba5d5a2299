// Everything that the library needs of a framework, and nothing else.

#include "framework/CommsChannelDataContainerMessage.h"
#include "framework/CriticalSection.h"
#include "framework/ExceptionPublisher.h"
#include "framework/InvokeInterceptorContext.h"
#include "framework/InvokerResponse.h"
#include "framework/Logging.h"
#include "framework/MirelException.h"
#include "framework/ProcessTypeString.h"
#include "framework/Semaphore.h"
#include "framework/Serializer.h"
#include "framework/Service.h"
#include "framework/Threader.h"
#include "framework/symbolInfo.h"

#include <atomic>
#include <condition_variable>
#include <future>
#include <memory>
#include <mutex>
#include <pthread.h>

using Message = CommsChannelDataContainerMessage;

// ---- Messages --------------------------------------------------------------------------------

namespace {

struct MessageState {
    int type = 0;
    MirelThreadPriority priority = ePriorityNormal;
    std::string texts[7];
    std::string data;
};

enum Text { eProtocol, eInterface, eSource, eChannel, eCallback, eCallMode, eContext };

} // namespace

Message::CommsChannelDataContainerMessage() { m_opaque.make<MessageState>(); }
Message::~CommsChannelDataContainerMessage() { m_opaque.destroy<MessageState>(); }
Message& Message::operator=(const Message& other) {
    m_opaque.as<MessageState>() = other.m_opaque.as<MessageState>();
    return *this;
}
int Message::msgType() { return m_opaque.as<MessageState>().type; }
MirelThreadPriority Message::priority() { return m_opaque.as<MessageState>().priority; }
std::string& Message::protocol() { return m_opaque.as<MessageState>().texts[eProtocol]; }
std::string& Message::interface() { return m_opaque.as<MessageState>().texts[eInterface]; }
std::string& Message::sourceChannel() { return m_opaque.as<MessageState>().texts[eSource]; }
std::string& Message::channel() { return m_opaque.as<MessageState>().texts[eChannel]; }
std::string& Message::callbackChannel() { return m_opaque.as<MessageState>().texts[eCallback]; }
std::string& Message::proxyCallMode() { return m_opaque.as<MessageState>().texts[eCallMode]; }
std::string& Message::remoteContext() { return m_opaque.as<MessageState>().texts[eContext]; }
long Message::requestId() { return 1; }
std::string Message::getData() { return m_opaque.as<MessageState>().data; }
void Message::setMsgType(int type) { m_opaque.as<MessageState>().type = type; }
void Message::setData(std::string data) { m_opaque.as<MessageState>().data = std::move(data); }

void Serializer::deserialize(std::string& data, int& value) { value = std::stoi(data); }

InvokerResponse::InvokerResponse(CommsChannelIfc*, std::string&, std::string&, std::string&,
                                 std::string&, long, std::string&, std::string&, int) {}
InvokerResponse::~InvokerResponse() noexcept(false) = default;

using Context = InvokeInterceptorContext;
Context::InvokeInterceptorContext(InterceptionPoint, Message&) {}
Context::InvokeInterceptorContext(InterceptionPoint, int, InvokerResponse*) {}
Context::InvokeInterceptorContext(const Context& other) : InterceptionContext(other) {}
Context::~InvokeInterceptorContext() = default;
void Context::setInterceptionPoint(InterceptionPoint) {}

// ---- Failures and log ------------------------------------------------------------------------

MirelException::MirelException(const std::string& message, const char*, int) {
    m_opaque.make<std::string>(message);
}
MirelException::MirelException(const std::string& message, const char*, int, MirelException&) {
    m_opaque.make<std::string>(message);
}
MirelException::MirelException(const MirelException& other) : std::exception(other) {
    m_opaque.make<std::string>(other.m_opaque.as<std::string>());
}
MirelException::~MirelException() { m_opaque.destroy<std::string>(); }
const char* MirelException::what() const noexcept { return m_opaque.as<std::string>().c_str(); }

ExceptionPublisher* ExceptionPublisher::instance() {
    static ExceptionPublisher publisher;
    return &publisher;
}
void ExceptionPublisher::publishException(MirelException&) {}

int loggingOnAppUni(const char*, int) { return 0; }
void logAppUni(const char*, const char*, int, int, const char*, ...) {}
std::string& symbolInfo::demangleSymbol(std::string& name) { return name; }

// ---- Threads ---------------------------------------------------------------------------------

namespace {

struct Units {
    std::mutex mutex;
    std::condition_variable given;
    int free = 0;
    int maximum = 0;
};

struct Thread {
    std::atomic<unsigned long> id{0};
    std::promise<void> begin;
    std::promise<void> end;
    std::shared_future<void> ended = end.get_future();
};

using Shared = std::shared_ptr<Thread>;

struct Start {
    Threadable* threadable;
    Shared thread;
};

void* threadMain(void* argument) {
    const std::unique_ptr<Start> start(static_cast<Start*>(argument));
    start->thread->begin.get_future().wait();
    start->threadable->run();
    start->thread->end.set_value();
    return nullptr;
}

} // namespace

const int Semaphore::NOT_AVAILABLE = 0;

// On the heap, and shared: the object may be destroyed while `give` is on its way out.
Semaphore::Semaphore(int initial, int maximum, bool) {
    auto& units = *m_opaque.make<std::shared_ptr<Units>>(std::make_shared<Units>());
    units.free = initial;
    units.maximum = maximum;
}
Semaphore::~Semaphore() { m_opaque.destroy<std::shared_ptr<Units>>(); }
bool Semaphore::take(int) {
    Units& units = *m_opaque.as<std::shared_ptr<Units>>();
    std::unique_lock lock(units.mutex);
    units.given.wait(lock, [&units] { return units.free > 0; });
    --units.free;
    return true;
}
void Semaphore::give() {
    const std::shared_ptr<Units> units = m_opaque.as<std::shared_ptr<Units>>();
    const std::lock_guard lock(units->mutex);
    if (units->free < units->maximum)
        ++units->free;
    units->given.notify_one();
}

CriticalSection::CriticalSection(Semaphore& semaphore) {
    m_opaque.make<Semaphore*>(&semaphore);
    semaphore.take(-1);
}
CriticalSection::~CriticalSection() { m_opaque.as<Semaphore*>()->give(); }

Threadable::Threadable() { m_opaque.make<Shared>(std::make_shared<Thread>()); }
Threadable::Threadable(const Threadable& other) {
    m_opaque.make<Shared>(other.m_opaque.as<Shared>());
}
Threadable::~Threadable() { m_opaque.destroy<Shared>(); }
std::string Threadable::type() { return {}; }
unsigned long Threadable::threadId() const { return m_opaque.as<Shared>()->id; }
unsigned long Threadable::currentThreadId() { return pthread_self(); }
void Threadable::waitForThreadCompletion() {
    if (threadId() != 0)
        m_opaque.as<Shared>()->ended.wait();
}

Threader::Threader() = default;
Threader::~Threader() = default;
int Threader::createThread(unsigned long& threadId, Threadable* threadable, std::string, int, int) {
    const Shared thread = threadable->m_opaque.as<Shared>();
    pthread_t id = 0;
    if (pthread_create(&id, nullptr, &threadMain, new Start{threadable, thread}) != 0)
        throw MirelException("no thread", "", 0);
    pthread_detach(id);
    threadId = thread->id = id;
    thread->begin.set_value();
    return 0;
}

// A worker that lets go of its own thread detaches it once more, which has no effect.

void Service::run() {}
MirelThreadPriority Service::getThreadPriorityForPlatform() { return ePriorityNormal; }

const std::string ProcessTypeString::SERVICE_EXEC_THREAD = "executor";
const std::string ProcessTypeString::SERVICE_MT_THREAD = "worker";
const std::string ProcessTypeString::SERVICE_ST_THREAD = "inline";
