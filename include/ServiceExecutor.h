#pragma once

#include "DelayedMessage.h"
#include "ServiceExecCallbackIfc.h"
#include "ServiceLock.h"
#include "framework/Threadable.h"

#include <atomic>
#include <map>
#include <memory>
#include <queue>
#include <set>
#include <string>

class CaughtException;
struct ResponseDestroyer;
class CommsChannelDataContainerMessage;
class CommsChannelIfc;
class FrameworkContext;
class InvokeInterceptorDispatcher;
class MirelException;
struct Place;
class ServiceThreadPoolIfc;
class Threader;

/// Runs one service: reads the service's channel on a thread of its own, one message at a time, and
/// has each message run.
///
/// A message of type 6 is a timer event, one that names a protocol and an interface is an invoker
/// request, any other is a legacy message. A single-threaded executor runs requests and timer
/// events on its own thread; a multi-threaded one on workers of its pool. Legacy messages always
/// run on the executor's thread.
///
/// What a multi-threaded executor guarantees for the requests of one source channel:
///
///  1. They start in the order in which they were read, whatever their priorities.
///  2. They run one at a time: a request starts after the one before it has returned or thrown, and
///     after its copy of the data has been freed. All that the earlier one wrote is visible to the
///     later one, on whatever worker it runs.
///  3. A request that fails does not hold up the next one.
///  4. Each request that found an invoker is run once, or its response is destroyed once. Destroyed
///     are the responses of requests that fail, that the pool has no thread for, that are still
///     held back when the executor is destroyed, and that have not begun, or are held back, when
///     the worker of their channel is told to stop by the pool's shutdown. The channel is free
///     after that.
///
/// and between source channels:
///
///  5. A channel never waits for another channel's requests: while it has work, it has a worker of
///     its own. There is no order between channels.
///
/// Not guaranteed: that a channel stays on one worker (it moves when the priority changes); any
/// order of timer events and legacy messages with respect to requests; any bound on the number of
/// held-back requests or of workers (that is for the channel, which may limit what it lets in).
///
/// Failures. What service code throws on a service thread is reported there and ends nothing. A
/// held-back request that the pool has no thread for fails, with a report that names its source
/// channel, and the channel goes on. What reaches the executor's own loop (from a legacy message,
/// from finding or initialising an invoker, from creating the service, from the pool, from timer
/// data that cannot be read) is published as one report and ends the loop; `hasStarted()` stays
/// true then. It also stays true when service code that runs on the executor's thread ends that
/// thread (`pthread_exit`); no report tells of that.
///
/// Threads and lifetime. The host's thread constructs, calls `startThread`, later `shutdown`, and
/// then destroys. The executor must outlive every worker that still calls it back, which a worker
/// does after its request has been answered. So between `shutdown` and the destruction comes one of
/// two: the pool's `shutdown`, which ends the workers of all its executors; or `waitForWorkers`,
/// which lets the requests of this one come to their end while the others go on. The pool is
/// destroyed when no executor uses it any more.
class __attribute__((visibility("default"))) ServiceExecutor : public ServiceExecCallbackIfc,
                                                               public Threadable {
public:
    /// An executor without channel, context and pool. It serves nothing and reports priority 1.
    ServiceExecutor();

    /// For a service object that exists. `serviceInterface` names the interfaces offered: a request
    /// is accepted when its interface's name occurs anywhere in it. The executor takes over
    /// `channel`; everything else must outlive it. `dispatcher` may be null.
    ServiceExecutor(Executable* executable, CommsChannelIfc* channel, std::string serviceInterface,
                    FrameworkContext* fwkContext, ServiceThreadPoolIfc* pool,
                    InvokeInterceptorDispatcher* dispatcher, bool multiThreaded);

    /// For a service that the framework creates from these names when the first message arrives.
    /// Mind the order: library, creator, interface.
    ServiceExecutor(std::string libraryName, std::string creatorName, std::string serviceInterface,
                    CommsChannelIfc* channel, FrameworkContext* fwkContext,
                    ServiceThreadPoolIfc* pool, InvokeInterceptorDispatcher* dispatcher,
                    bool multiThreaded);

    ServiceExecutor(const ServiceExecutor&) = delete;
    ServiceExecutor& operator=(const ServiceExecutor&) = delete;

    bool reuseThreadForDelayedMessage(ServiceThreadIfc* thread) override;

    /// Destroys the responses of the requests still held back, then the channel. Does not stop or
    /// wait for the thread: call `shutdown` first.
    ~ServiceExecutor() override;

    /// The thread's body: reads and dispatches until a read fails or a failure ends the loop.
    void run() override;

    MirelThreadPriority getThreadPriorityForPlatform() override;
    std::string type() override;

    /// Has `threader` start the executor's thread. Returns and throws what its `createThread` does.
    int startThread(Threader& threader, unsigned long& threadId);

    /// True from the start of the loop until a read fails. Any thread may ask.
    bool hasStarted();

    /// Closes the channel, which ends the loop, and waits until the executor's thread has ended. At
    /// once when the thread never started or was waited for before. Requests that workers run or
    /// hold back are not waited for. Not to be called on the executor's own thread.
    void shutdown();

    /// To be called after `shutdown`, by the same thread. Waits until each request that was read
    /// has run or failed, those held back too, and no worker will call this executor back or touch
    /// it: then it may be destroyed, while the pool goes on. At once when that is so already, as
    /// after the pool's shutdown. Not to be called on a worker.
    ///
    /// Not waited for are timer events: a worker that runs one uses the service object, and nothing
    /// of this executor. Before the service object is destroyed, shut the pool down, unless the
    /// service has no timers.
    void waitForWorkers();

    // The road of one message, in its order. Called by the executor's own thread only.

    void processMessage();
    bool blockUntilMessageRead(CommsChannelDataContainerMessage& msg);
    void initService();

    void executeTimerEvent(std::string data, MirelThreadPriority priority,
                           std::string sourceChannel, std::string destChannel);
    void executeLegacyEvent(CommsChannelDataContainerMessage& msg);
    void executeInvokerRequest(CommsChannelDataContainerMessage& msg);

    Invoker* findAndInitializeInvoker(const std::string& interface, const std::string& protocol,
                                      const std::string& logPrefix);

    /// Both take over `response`, also when they throw.
    void executeInvokerRequest_ST(MirelThreadPriority priority, Invoker* invoker,
                                  const std::string& data, InvokerResponse* response,
                                  const std::string& logPrefix);
    void executeInvokerRequest_MT(MirelThreadPriority priority, Invoker* invoker,
                                  const std::string& data, InvokerResponse* response,
                                  const std::string& sourceChannel, const std::string& logPrefix);

    // Failure reports. Any thread.

    /// Appends the service's class, interface and library to `text`, and returns it.
    std::string& setDetailedExceptionData(std::string& text);
    void publishDetailedException(std::string kind, std::string text);

private:
    friend class ExecutorInspector; // lets tests look at the containers

    using OwnedResponse = std::unique_ptr<InvokerResponse, ResponseDestroyer>;

    ServiceThreadIfc* getThread(MirelThreadPriority priority, const std::string& sourceChannel,
                                const std::string& logPrefix) MIREL_REQUIRES(m_channelLock);
    bool isThreadAllocatedToChannel(const std::string& channel) const MIREL_REQUIRES(m_channelLock);
    bool startDelayedMessage(ServiceThreadIfc* thread, OwnedResponse& unstarted)
        MIREL_REQUIRES(m_channelLock);
    void publishCaught(const CaughtException& caught, const Place& noticed);
    void publishNotStarted(const CaughtException& caught, ServiceThreadIfc* thread,
                           const Place& noticed);
    void publish(const char* kind, MirelException report, const Place& noticed);

    // Set by the constructor, or on the executor's thread (the service object, once). Atomic where
    // another thread may look: `initService` tests the service object before it takes its lock, and
    // `hasStarted` has no lock at all.
    std::atomic<Executable*> m_pexecutable;
    CommsChannelIfc* const m_pcommsChannel; ///< owned
    FrameworkContext* const m_pfwkContext;
    std::atomic<bool> m_started;
    const std::string m_serviceInterface;
    ServiceThreadPoolIfc* const m_pthreadPool;
    const std::string m_libraryName;
    const std::string m_creatorName;
    InvokeInterceptorDispatcher* const m_pinterceptorDispatcher;
    const bool m_multiThreaded;
    const MirelThreadPriority m_threadPriority;

    ServiceLock m_initLock; ///< held while the service is created

    // When m_channelLock is free: a channel is busy exactly when one worker serves it, and has a
    // queue of held-back requests only while it is busy and the queue is not empty. Locked before
    // the pool's lock, never after it.
    ServiceLock m_channelLock;
    std::map<ServiceThreadIfc*, std::string> m_threadChannels MIREL_GUARDED_BY(m_channelLock);
    std::set<std::string> m_busyChannels MIREL_GUARDED_BY(m_channelLock);
    std::map<std::string, std::queue<DelayedMessage>>
        m_delayedMessages MIREL_GUARDED_BY(m_channelLock);

    /// What `waitForWorkers` waits for; null while it does not. Given by the worker that leaves
    /// m_threadChannels empty. Not owned: it lives in that call.
    Semaphore* m_pnoWorkers MIREL_GUARDED_BY(m_channelLock)
        MIREL_POINTEE_GUARDED_BY(m_channelLock) = nullptr;
};
