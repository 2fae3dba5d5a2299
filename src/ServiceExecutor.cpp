#include "ServiceExecutor.h"

#include "FailureTiers.h"
#include "Invocation.h"
#include "ServiceThreadIfc.h"
#include "ServiceThreadPoolIfc.h"
#include "Trace.h"
#include "framework/CommsChannelDataContainerMessage.h"
#include "framework/CommsChannelIfc.h"
#include "framework/ExceptionPublisher.h"
#include "framework/Executable.h"
#include "framework/FrameworkContext.h"
#include "framework/InvokeInterceptorContext.h"
#include "framework/InvokeInterceptorDispatcher.h"
#include "framework/Invoker.h"
#include "framework/InvokerResponse.h"
#include "framework/ProcessTypeString.h"
#include "framework/Serializer.h"
#include "framework/Service.h"
#include "framework/Threader.h"

#include <cstdio>
#include <sched.h>
#include <typeinfo>
#include <utility>

namespace {

constexpr const char* kComponent = "ServiceExecutor";

constexpr int kTimerEvent = 6; ///< the message type that marks a timer event

using InterceptionPoint = InvokeInterceptorContext::InterceptionPoint;

MirelThreadPriority ownPriority(bool multiThreaded) {
    return MirelThreadPriority(multiThreaded ? 2 : 1);
}

/// What stands in front of each line about one request. The request id and what closes the prefix
/// have room for 11 characters; a longer text is cut.
std::string makeLogPrefix(CommsChannelDataContainerMessage& msg) {
    char idAndEnd[12];
    (void)std::snprintf(idAndEnd, sizeof idAndEnd, "%ld)", msg.requestId());
    return "(sourceChannelName='" + msg.sourceChannel() + "' dest='" + msg.channel() +
           "',reqid=" + idAndEnd;
}

/// Gives back a thread that was taken and has got no work. Only a worker's own thread can return it
/// to its pool, so it is woken to find nothing to do. It serves no channel and calls nobody back.
void giveBack(ServiceThreadIfc* worker) {
    worker->callBackOnCompletion(nullptr);
    worker->timerEvent(nullptr, 0);
}

} // namespace

ServiceExecutor::ServiceExecutor()
    : ServiceExecutor(nullptr, nullptr, std::string(), nullptr, nullptr, nullptr, false) {}

ServiceExecutor::ServiceExecutor(Executable* executable, CommsChannelIfc* channel,
                                 std::string serviceInterface, FrameworkContext* fwkContext,
                                 ServiceThreadPoolIfc* pool,
                                 InvokeInterceptorDispatcher* dispatcher, bool multiThreaded)
    : m_pexecutable(executable),
      m_pcommsChannel(channel),
      m_pfwkContext(fwkContext),
      m_started(false),
      m_serviceInterface(std::move(serviceInterface)),
      m_pthreadPool(pool),
      m_pinterceptorDispatcher(dispatcher),
      m_multiThreaded(multiThreaded),
      m_threadPriority(ownPriority(multiThreaded)) {}

ServiceExecutor::ServiceExecutor(std::string libraryName, std::string creatorName,
                                 std::string serviceInterface, CommsChannelIfc* channel,
                                 FrameworkContext* fwkContext, ServiceThreadPoolIfc* pool,
                                 InvokeInterceptorDispatcher* dispatcher, bool multiThreaded)
    : m_pexecutable(nullptr),
      m_pcommsChannel(channel),
      m_pfwkContext(fwkContext),
      m_started(false),
      m_serviceInterface(std::move(serviceInterface)),
      m_pthreadPool(pool),
      m_libraryName(std::move(libraryName)),
      m_creatorName(std::move(creatorName)),
      m_pinterceptorDispatcher(dispatcher),
      m_multiThreaded(multiThreaded),
      m_threadPriority(ownPriority(multiThreaded)) {}

ServiceExecutor::~ServiceExecutor() {
    // No lock: no worker has this executor as its callback any more.
    for (auto& [channel, requests] : m_delayedMessages)
        for (; !requests.empty(); requests.pop())
            OwnedResponse(requests.front().response).reset();
    // Last, so that the responses above could still be sent.
    delete m_pcommsChannel;
}

int ServiceExecutor::startThread(Threader& threader, unsigned long& threadId) {
    return threader.createThread(threadId, this, std::string(), 1, 0);
}

bool ServiceExecutor::hasStarted() { return m_started; }
std::string ServiceExecutor::type() { return ProcessTypeString::SERVICE_EXEC_THREAD; }
MirelThreadPriority ServiceExecutor::getThreadPriorityForPlatform() { return m_threadPriority; }

void ServiceExecutor::shutdown() {
    if (m_pcommsChannel)
        m_pcommsChannel->close();
    waitForThreadCompletion();
    sched_yield();
}

void ServiceExecutor::waitForWorkers() {
    Semaphore noWorkers(Semaphore::NOT_AVAILABLE, 1, false);
    {
        ServiceLockGuard lock(m_channelLock);
        if (m_threadChannels.empty())
            return;
        m_pnoWorkers = &noWorkers;
    }
    // No request is dispatched any more, so no worker comes after the last one.
    noWorkers.take(-1);
    // Who gave it did that with the lock held. That it gives the lock back is the last that it does
    // with this object.
    ServiceLockGuard lock(m_channelLock);
    m_pnoWorkers = nullptr;
}

// ---- The loop and its end --------------------------------------------------------------------

void ServiceExecutor::run() {
    m_started = true;
    runInTiers(
        [this] {
            do {
                processMessage();
            } while (m_started);
        },
        [this](const CaughtException& caught) { publishCaught(caught, Place::here()); });
}

void ServiceExecutor::publishCaught(const CaughtException& caught, const Place& noticed) {
    std::string text = caught.reportPrefix(kComponent);
    setDetailedExceptionData(text);
    publish(caught.kind(), caught.report(text, noticed), noticed);
}

void ServiceExecutor::publishDetailedException(std::string kind, std::string text) {
    const Place noticed = Place::here();
    setDetailedExceptionData(text);
    publish(kind.c_str(), MirelException(text, noticed.file(), noticed.line), noticed);
}

void ServiceExecutor::publish(const char* kind, MirelException report, const Place& noticed) {
    logAppUni(kComponent, noticed.file(), 2, noticed.line, "run(this=%p) - %s caught!",
              static_cast<const void*>(this), kind);
    ExceptionPublisher::instance()->publishException(report);
}

std::string& ServiceExecutor::setDetailedExceptionData(std::string& text) {
    if (const Executable* const service = m_pexecutable)
        text += "\n Service: " + classNameOf(typeid(*service));
    text += "\n ServiceInterface: " + m_serviceInterface;
    text += "\n LibraryName: " + m_libraryName;
    return text;
}

// ---- One message -----------------------------------------------------------------------------

void ServiceExecutor::processMessage() {
    CommsChannelDataContainerMessage msg;
    if (!blockUntilMessageRead(msg)) {
        m_started = false;
        return;
    }
    initService();
    if (msg.msgType() == kTimerEvent)
        executeTimerEvent(msg.getData(), msg.priority(), msg.sourceChannel(), msg.channel());
    else if (!msg.protocol().empty() && !msg.interface().empty())
        executeInvokerRequest(msg);
    else
        executeLegacyEvent(msg);
}

bool ServiceExecutor::blockUntilMessageRead(CommsChannelDataContainerMessage& msg) {
    const bool read = m_pcommsChannel && m_pcommsChannel->readMessage(msg);
    if (!read)
        m_started = false;
    return read;
}

void ServiceExecutor::initService() {
    // Without the lock: once set, the service object never changes.
    if (m_pexecutable)
        return;
    ServiceLockGuard lock(m_initLock);
    if (m_pexecutable)
        return;
    TRACE(4, "initService: ifc='%s' lib='%s', creator='%s'", m_serviceInterface.c_str(),
          m_libraryName.c_str(), m_creatorName.c_str());
    m_pexecutable = m_pfwkContext->createService(this, m_libraryName, m_creatorName,
                                                 m_pcommsChannel, m_serviceInterface);
    TRACE(6, "Service created & initialised - interface = '%s'", m_serviceInterface.c_str());
}

// ---- Timer events and legacy messages --------------------------------------------------------

void ServiceExecutor::executeTimerEvent(std::string data, MirelThreadPriority priority,
                                        std::string sourceChannel, std::string destChannel) {
    int timerId = 0;
    Serializer::deserialize(data, timerId);
    ServiceThreadIfc* const thread = m_pthreadPool->getThread(priority, m_multiThreaded);
    try {
        TRACE(6, "(sourceChannelName='%s' dest='%s',timerid=%d)Got a timer thread",
              sourceChannel.c_str(), destChannel.c_str(), timerId);
    } catch (...) {
        if (m_multiThreaded)
            giveBack(thread);
        else
            delete thread;
        throw;
    }
    thread->timerEvent(m_pexecutable, timerId);
    TRACE(6, "(sourceChannelName='%s' dest='%s',timerid=%d)Executing timer event",
          sourceChannel.c_str(), destChannel.c_str(), timerId);
}

void ServiceExecutor::executeLegacyEvent(CommsChannelDataContainerMessage& msg) {
    TRACE(6,
          "(sourceChannelName='%s' dest='%s',reqid=%lu)Legacy code - cast to 'Service' and "
          "call handle message",
          msg.sourceChannel().c_str(), msg.channel().c_str(),
          static_cast<unsigned long>(msg.requestId()));
    auto* const service = dynamic_cast<Service*>(m_pexecutable.load());
    if (!service)
        return;
    const auto handle = [&] {
        const std::string data = msg.getData();
        service->handleMessage(data.c_str(), static_cast<int>(data.size()), msg.sourceChannel(),
                               m_pcommsChannel, msg);
    };
    if (!m_pinterceptorDispatcher) {
        handle();
        return;
    }
    InvokeInterceptorContext before(InterceptionPoint(0), msg);
    m_pinterceptorDispatcher->dispatch(&before);
    handle();
    InvokeInterceptorContext after(InterceptionPoint(1), msg);
    m_pinterceptorDispatcher->dispatch(&after);
}

// ---- Invoker requests ------------------------------------------------------------------------

void ServiceExecutor::executeInvokerRequest(CommsChannelDataContainerMessage& msg) {
    // For the lines of levels 6 and 4, and only if those are wanted: making it takes a third of the
    // instructions of the whole function. A line that is switched on meanwhile goes without.
    const bool wanted = loggingOnAppUni(kComponent, 6) || loggingOnAppUni(kComponent, 4);
    const std::string logPrefix = wanted ? makeLogPrefix(msg) : std::string();
    TRACE(6, "%sProtocol and interface included in message", logPrefix.c_str());
    if (m_serviceInterface.find(msg.interface()) == std::string::npos) {
        TRACE(3, "%sInterface not supported - do nothing", makeLogPrefix(msg).c_str());
        return;
    }
    TRACE(6, "%sService supports interface", logPrefix.c_str());
    Invoker* const invoker = findAndInitializeInvoker(msg.interface(), msg.protocol(), logPrefix);
    if (!invoker) {
        LOG_ERROR("%sNo invoker found", makeLogPrefix(msg).c_str());
        return;
    }
    OwnedResponse response(new InvokerResponse(
        m_pcommsChannel, msg.sourceChannel(), msg.callbackChannel(), msg.protocol(),
        msg.interface(), msg.requestId(), msg.proxyCallMode(), msg.remoteContext(), 0));
    TRACE(6, "%sCreated invoker response", logPrefix.c_str());
    const std::string data = msg.getData();
    if (m_multiThreaded)
        executeInvokerRequest_MT(msg.priority(), invoker, data, response.release(),
                                 msg.sourceChannel(), logPrefix);
    else
        executeInvokerRequest_ST(msg.priority(), invoker, data, response.release(), logPrefix);
}

Invoker* ServiceExecutor::findAndInitializeInvoker(const std::string& interface,
                                                   const std::string& protocol,
                                                   const std::string& logPrefix) {
    Invoker* const invoker = m_pfwkContext->findInvoker(interface, protocol);
    TRACE(6, "%sFind invoker called", logPrefix.c_str());
    if (!invoker) {
        LOG_ERROR("ProcessMessage: findInvoker for %s, %s failed", interface.c_str(),
                  protocol.c_str());
        return nullptr;
    }
    invoker->initialise(m_pfwkContext);
    TRACE(6, "%sInvoker initialised with fwkContext", logPrefix.c_str());
    return invoker;
}

void ServiceExecutor::executeInvokerRequest_ST(MirelThreadPriority priority, Invoker* invoker,
                                               const std::string& data, InvokerResponse* response,
                                               const std::string& logPrefix) {
    OwnedResponse owned(response);
    // The caller's until it is handed its work; then it deletes itself.
    std::unique_ptr<ServiceThreadIfc> thread(m_pthreadPool->getThread(priority, m_multiThreaded));
    TRACE(6, "%sExecuting request: %s", logPrefix.c_str(), data.c_str());
    thread.release()->executeRequest(invoker, m_pexecutable, data.c_str(),
                                     static_cast<int>(data.size()), owned.release());
}

void ServiceExecutor::executeInvokerRequest_MT(MirelThreadPriority priority, Invoker* invoker,
                                               const std::string& data, InvokerResponse* response,
                                               const std::string& sourceChannel,
                                               const std::string& logPrefix) {
    OwnedResponse owned(response); // before the lock, so that it is destroyed without it
    ServiceLockGuard lock(m_channelLock);
    if (isThreadAllocatedToChannel(sourceChannel)) {
        TRACE(4, "%sDELAYED msg='%s'", logPrefix.c_str(), data.c_str());
        m_delayedMessages[sourceChannel].push({invoker, m_pexecutable, data, response, priority});
        (void)owned.release();
        return;
    }
    ServiceThreadIfc* const worker = getThread(priority, sourceChannel, logPrefix);
    try {
        TRACE(4, "%sEXECUTD msg='%s'", logPrefix.c_str(), data.c_str());
        worker->executeRequest(invoker, m_pexecutable, data.c_str(), static_cast<int>(data.size()),
                               response);
    } catch (...) {
        m_busyChannels.erase(sourceChannel);
        m_threadChannels.erase(worker);
        giveBack(worker);
        throw;
    }
    // The worker may have run the request by now, and even so waits in its callback for the lock.
    (void)owned.release();
}

ServiceThreadIfc* ServiceExecutor::getThread(MirelThreadPriority priority,
                                             const std::string& sourceChannel,
                                             const std::string& logPrefix) {
    ServiceThreadIfc* const thread = m_pthreadPool->getThread(priority, m_multiThreaded);
    try {
        TRACE(6, "%sGot a thread", logPrefix.c_str());
        thread->callBackOnCompletion(this);
        m_threadChannels[thread] = sourceChannel;
        m_busyChannels.insert(sourceChannel);
    } catch (...) {
        m_threadChannels.erase(thread);
        giveBack(thread);
        throw;
    }
    return thread;
}

bool ServiceExecutor::isThreadAllocatedToChannel(const std::string& channel) const {
    return m_busyChannels.contains(channel);
}

// ---- Completion, on the worker's thread ------------------------------------------------------

bool ServiceExecutor::reuseThreadForDelayedMessage(ServiceThreadIfc* thread) {
    for (;;) {
        bool reused = false;
        bool failed = false;
        OwnedResponse unstarted;
        runInTiers(
            [&] {
                ServiceLockGuard lock(m_channelLock);
                reused = startDelayedMessage(thread, unstarted);
            },
            [&](const CaughtException& caught) {
                // Outside the lock, because foreign code runs here. The channel is still this
                // worker's, so requests that arrive meanwhile are held back.
                failed = true;
                unstarted.reset();
                survive(kComponent, "ServiceExecutor, report of a failed hand-over",
                        [&] { publishNotStarted(caught, thread, Place::here()); });
            });
        // A request that could not be started does not hold up the next one of its channel.
        if (!failed)
            return reused;
    }
}

/// Tells that a request held back for the channel that `thread` serves could not be started.
void ServiceExecutor::publishNotStarted(const CaughtException& caught, ServiceThreadIfc* thread,
                                        const Place& noticed) {
    std::string channel;
    {
        ServiceLockGuard lock(m_channelLock);
        channel = m_threadChannels.at(thread);
    }
    std::string text = caught.reportPrefix(kComponent);
    setDetailedExceptionData(text);
    text += "\n Held-back request: one of source channel '" + channel +
            "' could not be started and has failed; the channel goes on";
    MirelException report = caught.report(text, noticed);
    logAppUni(kComponent, noticed.file(), 2, noticed.line,
              "reuseThreadForDelayedMessage(this=%p) - %s caught! A held-back request of src='%s' "
              "could not be started and has failed; the channel goes on",
              static_cast<const void*>(this), caught.kind(), channel.c_str());
    ExceptionPublisher::instance()->publishException(report);
}

/// Starts the oldest request held back for the channel that `thread` serves, or frees the channel.
/// Returns what `reuseThreadForDelayedMessage` is to return.
///
/// When this throws, the request is out of its queue, its response is in `unstarted`, and the
/// channel is still served by `thread`.
bool ServiceExecutor::startDelayedMessage(ServiceThreadIfc* thread, OwnedResponse& unstarted) {
    const auto served = m_threadChannels.find(thread);
    if (served == m_threadChannels.end())
        return false;
    const std::string& channel = served->second;

    const auto waiting = m_delayedMessages.find(channel);
    if (waiting == m_delayedMessages.end() || waiting->second.empty()) {
        if (waiting != m_delayedMessages.end())
            m_delayedMessages.erase(waiting);
        m_busyChannels.erase(channel);
        m_threadChannels.erase(served);
        if (m_pnoWorkers && m_threadChannels.empty())
            m_pnoWorkers->give();
        return false;
    }
    const DelayedMessage request = std::move(waiting->second.front());
    unstarted.reset(request.response);
    waiting->second.pop();
    if (waiting->second.empty())
        m_delayedMessages.erase(waiting);

    const bool sameWorker = thread->threadPriority() == request.priority;
    TRACE(4,
          sameWorker ? "reuseThreadForDelayedMessage: CURRENT src='%s' msg='%s'"
                     : "reuseThreadForDelayedMessage: NEW src='%s' msg='%s'",
          channel.c_str(), request.data.c_str());
    ServiceThreadIfc* const worker =
        sameWorker ? thread : getThread(request.priority, channel, std::string());
    try {
        worker->executeRequest(request.invoker, request.executable, request.data.c_str(),
                               static_cast<int>(request.data.size()), request.response);
    } catch (...) {
        if (!sameWorker) {
            m_threadChannels.erase(worker);
            giveBack(worker);
        }
        throw;
    }
    (void)unstarted.release();
    // Only now that nothing can fail: until here the channel was the finished worker's.
    if (!sameWorker)
        m_threadChannels.erase(served);
    return sameWorker;
}
