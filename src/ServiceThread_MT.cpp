#include "ServiceThread_MT.h"

#include "FailureTiers.h"
#include "Invocation.h"
#include "ServiceExecCallbackIfc.h"
#include "ServiceThreadPoolIfc.h"
#include "Trace.h"
#include "framework/ExceptionPublisher.h"
#include "framework/Executable.h"
#include "framework/ProcessTypeString.h"
#include "framework/Threader.h"

#include <cstring>
#include <memory>
#include <pthread.h>
#include <utility>

namespace {

constexpr const char* kComponent = "ServiceThread_MT";

/// Stands for a worker's OS thread when the worker may be gone.
class ThreadOfWorker : public Threadable {
public:
    explicit ThreadOfWorker(const Threadable& worker) : Threadable(worker) {}

private:
    void run() override {}
    MirelThreadPriority getThreadPriorityForPlatform() override { return MirelThreadPriority(1); }
};

} // namespace

ServiceThread_MT::ServiceThread_MT(ServiceThreadPoolIfc* pool, bool reuseThread,
                                   MirelThreadPriority priority,
                                   InvokeInterceptorDispatcher* dispatcher)
    : m_pthreadPool(pool),
      m_reuseThread(reuseThread),
      m_stopThread(false),
      m_prequestSem(new Semaphore(Semaphore::NOT_AVAILABLE, 1, false)),
      m_pdata(nullptr),
      m_threadPriority(priority),
      m_pinterceptorDispatcher(dispatcher),
      m_pcallback(nullptr),
      m_destroyed(Semaphore::NOT_AVAILABLE, 1, false) {
    ServiceThread_MT::clearRequestData();
}

ServiceThread_MT::~ServiceThread_MT() {
    ServiceThread_MT::clearRequestData();
    // Whoever gave it last may not be back from `give` yet. That is allowed: `take` has returned.
    delete m_prequestSem;
}

void ServiceThread_MT::executeRequest(Invoker* invoker, Executable* executable, const char* data,
                                      int length, InvokerResponse* response) {
    // First what may fail; then nothing has been taken over yet.
    const auto size = static_cast<std::size_t>(length);
    auto copy = std::make_unique_for_overwrite<char[]>(size + 1);
    if (size > 0)
        std::memcpy(copy.get(), data, size);
    copy[size] = '\0';

    m_pexecutable = executable;
    m_requestType = eRequest;
    m_dataLength = length;
    m_pinvoker = invoker;
    m_presponse = response;
    m_pdata = copy.release();
    // No lock: the worker reads these fields after it has taken what is given here.
    m_prequestSem->give();
}

void ServiceThread_MT::timerEvent(Executable* executable, int timerId) {
    m_requestType = eTimer;
    m_pexecutable = executable;
    m_timerId = timerId;
    m_prequestSem->give();
}

void ServiceThread_MT::run() {
    // Cancellation of this thread is the service code's affair: see runStoredWork.
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    while (!m_stopThread) {
        m_prequestSem->take(-1);
        if (m_stopThread)
            break;
        try {
            runStoredWork();
            if (takeNextFromCallback())
                continue;
        } catch (abi::__forced_unwind&) {
            goOnUnderNewThread();
            throw; // nothing of this object is touched from here on
        }
        returnToPool();
    }
    end();
}

/// Runs the work and leaves none stored, whatever happens.
///
/// The thread can be cancelled in here and nowhere else. What is asked for in here also comes in
/// here, at the latest after the work, so that it does not hit the next request.
void ServiceThread_MT::runStoredWork() {
    try {
        pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, nullptr);
        survive(kComponent, "ServiceThread_MT::run, report of a failure", [this] { execute(); });
        pthread_testcancel();
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    } catch (abi::__forced_unwind&) {
        clearRequestData();
        throw;
    }
    clearRequestData();
}

bool ServiceThread_MT::takeNextFromCallback() {
    bool handedOver = false;
    if (m_pcallback)
        survive(kComponent, "ServiceThread_MT::run, completion callback",
                [&] { handedOver = m_pcallback->reuseThreadForDelayedMessage(this); });
    return handedOver;
}

void ServiceThread_MT::returnToPool() {
    // Before the return: from then on a new holder may register a callback of its own.
    m_pcallback = nullptr;
    survive(kComponent, "ServiceThread_MT::run, return to the pool",
            [this] { m_pthreadPool->returnThread(this); });
}

/// Gives up the work that the worker has and will not run, and what its callback hands it instead.
/// In the end the callback knows that this worker does nothing more for it.
void ServiceThread_MT::dropWork() {
    do {
        OwnedResponse(std::exchange(m_presponse, nullptr)).reset();
        clearRequestData();
    } while (takeNextFromCallback());
    m_pcallback = nullptr;
}

/// The last step of the loop.
void ServiceThread_MT::end() {
    dropWork(); // which was handed over together with the order to stop
    m_destroyed.take(-1);
    // Nobody else has the object any more: the pool has taken it out of its lists before it called
    // `destroyThread`, which has let go of it.
    delete this;
}

/// The service code is ending this OS thread. The worker keeps its place in the pool and what it
/// owes its callback, and starts again under a new OS thread: woken without work, that goes
/// straight to the callback.
void ServiceThread_MT::goOnUnderNewThread() {
    const auto dying = static_cast<pthread_t>(threadId());
    m_prequestSem->give();
    runInTiers(
        [this, dying] {
            Threader threader;
            unsigned long newThreadId = 0;
            threader.createThread(newThreadId, this, std::string(), 1, 0);
            // The object is the new thread's now. Nobody waits for the old one: who waits for the
            // worker waits for the thread that it has at the end.
            pthread_detach(dying);
        },
        [this](const CaughtException& caught) {
            logSurvived(kComponent, "ServiceThread_MT::run, new thread", caught, Place::here());
            // No thread to go on with: the channel's requests fail one by one until it is free, and
            // the worker leaves its pool as a temporary one does.
            dropWork();
            m_reuseThread = false;
            returnToPool();
            end();
        });
}

void ServiceThread_MT::execute() {
    const void* const self = this;
    OwnedResponse response(std::exchange(m_presponse, nullptr));
    runInTiers(
        [&] {
            if (m_requestType == eRequest && !m_pinvoker) {
                TRACE(5,
                      "ServiceThread_MT::execute() eRequest, m_pinvoker is not set, no "
                      "request to execute, ServiceThread_MT = %p",
                      self);
                delete response.release();
            } else if (m_requestType == eRequest) {
                TRACE(5, "execute(this=%p) - calling handleMessage", self);
                invoke(m_pinterceptorDispatcher, *m_pinvoker, m_pexecutable, m_pdata, m_dataLength,
                       response);
            } else if (m_requestType == eTimer && !m_pexecutable) {
                TRACE(5,
                      "ServiceThread_MT::execute() eTimer, m_pexecutable is not set, "
                      "ServiceThread_MT = %p",
                      self);
            } else if (m_requestType == eTimer) {
                TRACE(5, "execute(this=%p) - calling timerEvent", self);
                m_pexecutable->timerEvent(m_timerId);
            }
        },
        [&](const CaughtException& caught) {
            TRACE(5, "execute(this=%p) - %s caught!", self, caught.kind());
            delete response.release();
            TRACE(5, "execute(this=%p) - deleted m_presponse", self);
            publish(caught, Place::here());
        });
}

void ServiceThread_MT::publish(const CaughtException& caught, const Place& noticed) {
    std::string text = caught.reportPrefix(kComponent);
    setDetailedExceptionData(text);
    MirelException report = caught.report(text, noticed);
    TRACE(5, "execute(this=%p) - calling publish exception", static_cast<const void*>(this));
    ExceptionPublisher::instance()->publishException(report);
}

std::string& ServiceThread_MT::setDetailedExceptionData(std::string& text) {
    return appendWorkDetails(text, m_pinvoker, m_pexecutable, m_pdata, m_timerId);
}

void ServiceThread_MT::clearRequestData() {
    m_pinvoker = nullptr;
    m_pexecutable = nullptr;
    m_presponse = nullptr;
    m_dataLength = 0;
    m_timerId = 0;
    m_requestType = eNoRequest;
    delete[] std::exchange(m_pdata, nullptr);
}

void ServiceThread_MT::destroyThread() {
    if (m_stopThread.exchange(true))
        return;
    if (threadId() == currentThreadId()) {
        // The loop is this thread's: the object lives until control is back there.
        pthread_detach(static_cast<pthread_t>(threadId()));
        m_destroyed.give();
        return;
    }
    // Taken before the wake-up: the worker may delete itself as soon as it has been given the last
    // of the two, and nothing of it is touched after that.
    ThreadOfWorker thread(*this);
    m_prequestSem->give();
    m_destroyed.give();
    thread.waitForThreadCompletion();
}

bool ServiceThread_MT::reuseThread() { return m_reuseThread; }
MirelThreadPriority ServiceThread_MT::threadPriority() { return m_threadPriority; }
MirelThreadPriority ServiceThread_MT::getThreadPriorityForPlatform() { return m_threadPriority; }
std::string ServiceThread_MT::type() { return ProcessTypeString::SERVICE_MT_THREAD; }

void ServiceThread_MT::callBackOnCompletion(ServiceExecCallbackIfc* callback) {
    m_pcallback = callback;
}
