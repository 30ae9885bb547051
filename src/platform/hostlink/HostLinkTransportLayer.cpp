#include "platform/hostlink/HostLinkTransportLayer.h"

#include <signal.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "platform/hostlink/FileDescriptor.h"
#include "platform/hostlink/HostLinkLog.h"
#include "platform/hostlink/HostLinkMessage.h"
#include "platform/hostlink/HostLinkPort.h"

using namespace std::chrono_literals;

namespace
{

using Lock = std::unique_lock<std::mutex>;

// stop() returns within 250 ms; the rest is for the goodbye and for the threads to notice.
constexpr HostLinkDuration kStopFlush = 180ms;
constexpr HostLinkDuration kStopGoodbye = 220ms;
constexpr HostLinkDuration kStopLimit = 240ms;
constexpr HostLinkDuration kObserverPoll = 5ms;

// A send does not wake the thread for the deadline that it sets: for a while after one the thread sleeps
// no longer than the link's smallest time-out, so that it is up before any such deadline.
constexpr HostLinkDuration kShortSleep = 20ms;
constexpr HostLinkDuration kBusyAfterSend = 250ms;

HostLinkCore::Settings settingsWith(std::size_t bulkReserve)
{
    HostLinkCore::Settings settings;
    settings.bulkReserve = bulkReserve;
    return settings;
}

/// Blocks all signals for the threads that are made in its life: they are the program's, not ours.
class SignalsBlocked
{
public:
    SignalsBlocked()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t m_before{};
};

void pollUntil(std::vector<pollfd>& descriptors, HostLinkTime until)
{
    const HostLinkTime now = HostLinkClock::now();
    const HostLinkDuration left = std::max(until, now) - now;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    timespec limit{};
    limit.tv_sec = time_t(seconds.count());
    limit.tv_nsec = long(std::chrono::nanoseconds(left - seconds).count());
    ::ppoll(descriptors.data(), descriptors.size(), until == HostLinkTime::max() ? nullptr : &limit, nullptr);
}

} // namespace

/// What the transport shares with its thread. Everything is protected by the mutex, but for members
/// that say otherwise.
struct HostLinkTransportLayer::Private {
    enum class Phase { New, Running, Stopping, Stopped };

    using Transports = std::vector<std::shared_ptr<Private>>;

    /// The transports of the process, in the order of their starts.
    struct Registry {
        std::mutex mutex;
        Transports transports; ///< that run
        std::vector<std::weak_ptr<Private>> started;
    };
    static Registry& registry();
    static Transports allLive();
    static Transports allStarted();
    static std::vector<Live> countersOf(const Transports& transports);
    static void addLive(const std::shared_ptr<Private>& transport);
    static void removeLive(const std::shared_ptr<Private>& transport);

    Private(std::unique_ptr<HostLinkPhysicalLayer> layer, const HostLinkCore::Settings& settings)
        : name(layer->name()), port(std::move(layer), settings),
          drainedBytes((settings.queueBytes[std::size_t(MessageClass::Bulk)] - settings.bulkReserve) / 2)
    {
    }
    ~Private()
    {
        if (thread.joinable()) {
            thread.detach(); // it ended itself, or is left behind
        }
    }

    static int start(const std::shared_ptr<Private>& self);
    static void stop(const std::shared_ptr<Private>& self);
    static void run(const std::shared_ptr<Private>& self);

    bool stopsOrStopped() const { return phase == Phase::Stopping || phase == Phase::Stopped; }
    bool awaitStopped(Lock& lock);
    void exchange(Lock& lock);
    void deliver(Lock& lock);
    void reportDrained(Lock& lock);
    template <typename Observer>
    void call(Lock& lock, Observer observer);
    void flush(Lock& lock);
    void sleep(Lock& lock, HostLinkTime latest);
    void flushAndSayGoodbye(Lock& lock);
    bool worthFlushing() const;
    void sendOut(HostLinkTime now);
    void wake();
    void noteFull(MessageClass messageClass);
    bool hasBulkRoom() const;

    const std::string name;
    std::mutex mutex;
    std::condition_variable stopped;
    HostLinkPort port;
    const std::size_t drainedBytes; ///< a bulk queue of no more has drained
    Phase phase = Phase::New;
    std::thread thread;
    std::thread::id threadId;
    HostLinkTime stopBegan;
    bool goodbyeBegun = false;
    HostLinkTime lastSend = HostLinkTime::min();
    HostLinkTime sleepsUntil =
        HostLinkTime::min();   ///< when the thread wakes at the latest; min() while awake
    bool flushDue = false;     ///< the layer blocks, and something was sent that the thread has to write
    bool pollsForRoom = false; ///< the sleeping thread wakes when the layer has room
    bool bulkFull = false;     ///< somebody was told that the bulk queue is full
    bool observing = false;    ///< the thread is in an observer
    FileDescriptor wakeUp;     ///< an eventfd, constant from start() on
    std::vector<MessageReceivedObserver> observers; ///< constant from start() on
    std::vector<std::function<void()>> drainedObservers;
    std::vector<pollfd> descriptors; ///< the thread's own
    ByteArray message;               ///< the thread's own, the one that is delivered
};

HostLinkTransportLayer::HostLinkTransportLayer(std::unique_ptr<HostLinkPhysicalLayer> layer,
                                               std::size_t bulkReserve)
    : d(std::make_shared<Private>(std::move(layer), settingsWith(bulkReserve)))
{
}

HostLinkTransportLayer::~HostLinkTransportLayer()
{
    Private::stop(d);
}

void HostLinkTransportLayer::addMessageReceivedObserver(MessageReceivedObserver observer)
{
    const std::lock_guard lock(d->mutex);
    d->observers.push_back(std::move(observer));
}

void HostLinkTransportLayer::addBulkDrainedObserver(std::function<void()> observer)
{
    const std::lock_guard lock(d->mutex);
    d->drainedObservers.push_back(std::move(observer));
}

int HostLinkTransportLayer::start()
{
    return Private::start(d);
}

void HostLinkTransportLayer::stop()
{
    Private::stop(d);
}

int HostLinkTransportLayer::send(const ByteArray& message)
{
    const std::lock_guard lock(d->mutex);
    if (d->stopsOrStopped()) {
        return 0;
    }
    const HostLinkTime now = HostLinkClock::now();
    const bool taken = d->port.core().send(message, now);
    if (!taken) {
        d->noteFull(messageClass(HostLinkMessage::messageId(message)));
    }
    d->lastSend = now;
    d->sendOut(now); // a message that was not taken may have ended the session, which the peer is told
    return taken;
}

void HostLinkTransportLayer::messageHandled()
{
    const std::lock_guard lock(d->mutex);
    if (d->stopsOrStopped()) {
        return;
    }
    d->port.core().handled();
    d->sendOut(HostLinkClock::now());
}

bool HostLinkTransportLayer::writable(MessageClass messageClass, std::size_t size) const
{
    const std::lock_guard lock(d->mutex);
    if (d->stopsOrStopped()) {
        return false;
    }
    const bool writable = d->port.core().writable(messageClass, size);
    if (!writable) {
        d->noteFull(messageClass);
    }
    return writable;
}

HostLinkCounters HostLinkTransportLayer::counters() const
{
    const std::lock_guard lock(d->mutex);
    return d->port.core().counters();
}

std::vector<HostLinkTransportLayer::Live> HostLinkTransportLayer::live()
{
    return Private::countersOf(Private::allLive());
}

std::vector<HostLinkTransportLayer::Live> HostLinkTransportLayer::started()
{
    return Private::countersOf(Private::allStarted());
}

void HostLinkTransportLayer::stopAll()
{
    for (const std::shared_ptr<Private>& transport : Private::allLive()) {
        Private::stop(transport);
    }
}

HostLinkTransportLayer::Private::Registry& HostLinkTransportLayer::Private::registry()
{
    static auto& instance = *new Registry; // never destroyed: transports may outlive static objects
    return instance;
}

HostLinkTransportLayer::Private::Transports HostLinkTransportLayer::Private::allLive()
{
    const std::lock_guard lock(registry().mutex);
    return registry().transports;
}

HostLinkTransportLayer::Private::Transports HostLinkTransportLayer::Private::allStarted()
{
    Transports all;
    const std::lock_guard lock(registry().mutex);
    for (const std::weak_ptr<Private>& each : registry().started) {
        if (std::shared_ptr<Private> transport = each.lock()) {
            all.push_back(std::move(transport));
        }
    }
    return all;
}

std::vector<HostLinkTransportLayer::Live>
HostLinkTransportLayer::Private::countersOf(const Transports& transports)
{
    std::vector<Live> all;
    for (const std::shared_ptr<Private>& transport : transports) {
        const std::lock_guard lock(transport->mutex);
        all.push_back({transport->name, transport->port.core().counters()});
    }
    return all;
}

void HostLinkTransportLayer::Private::addLive(const std::shared_ptr<Private>& transport)
{
    const std::lock_guard lock(registry().mutex);
    registry().transports.push_back(transport);
    auto& list = registry().started;
    list.erase(std::remove_if(list.begin(), list.end(), [](const auto& each) { return each.expired(); }),
               list.end());
    list.push_back(transport);
}

void HostLinkTransportLayer::Private::removeLive(const std::shared_ptr<Private>& transport)
{
    const std::lock_guard lock(registry().mutex);
    auto& list = registry().transports;
    list.erase(std::remove(list.begin(), list.end(), transport), list.end());
}

int HostLinkTransportLayer::Private::start(const std::shared_ptr<Private>& self)
{
    const Lock lock(self->mutex);
    if (self->phase != Phase::New) {
        return self->phase == Phase::Running;
    }
    self->wakeUp = FileDescriptor(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
    if (!self->wakeUp) {
        HostLinkLog::write(HostLinkLog::Level::Error, "the link cannot start: no descriptor is left");
        return 0;
    }
    try {
        const SignalsBlocked signalsBlocked;
        self->thread = std::thread([self] { run(self); });
    } catch (const std::system_error& error) {
        HostLinkLog::write(HostLinkLog::Level::Error, std::string("the link cannot start: ") + error.what());
        return 0;
    }
    self->threadId = self->thread.get_id();
    self->phase = Phase::Running;
    addLive(self);
    return 1;
}

void HostLinkTransportLayer::Private::stop(const std::shared_ptr<Private>& self)
{
    Lock lock(self->mutex);
    if (self->phase == Phase::New) {
        self->phase = Phase::Stopped;
        return;
    }
    if (self->phase == Phase::Running) {
        self->phase = Phase::Stopping;
        self->stopBegan = HostLinkClock::now();
        self->wake();
    }
    if (self->threadId == std::this_thread::get_id()) {
        self->flushAndSayGoodbye(lock); // the thread ends when the observer that it is in returns
        return;
    }
    const bool ended = self->awaitStopped(lock);
    std::thread thread = std::move(self->thread);
    lock.unlock();
    if (!ended) {
        removeLive(self);
    }
    if (thread.joinable()) {
        ended ? thread.join() : thread.detach();
    }
}

/// False when the thread is left behind in a transfer that does not end.
bool HostLinkTransportLayer::Private::awaitStopped(Lock& lock)
{
    const auto isStopped = [this] { return phase == Phase::Stopped; };
    if (!port.layer().blocks()) {
        stopped.wait(lock, isStopped);
        return true;
    }
    HostLinkTime limit = stopBegan + kStopLimit;
    while (!stopped.wait_until(lock, limit, isStopped)) {
        if (!observing) {
            HostLinkLog::write(HostLinkLog::Level::Warning, "the link's device is stuck: stopped without it");
            phase = Phase::Stopped;
            return false;
        }
        limit = HostLinkClock::now() + kObserverPoll;
    }
    return true;
}

void HostLinkTransportLayer::Private::run(const std::shared_ptr<Private>& self)
{
    Lock lock(self->mutex);
    self->port.open(HostLinkClock::now());
    while (self->phase == Phase::Running) {
        self->exchange(lock); // which may unlock
        // cppcheck-suppress identicalInnerCondition
        if (self->phase == Phase::Running) {
            self->sleep(lock, HostLinkTime::max());
        }
    }
    self->flushAndSayGoodbye(lock);
    self->port.close();
    removeLive(self);
    self->phase = Phase::Stopped;
    self->stopped.notify_all();
}

/// Reads, delivers, writes: observers come before the writing, so that what they answer at once carries
/// the acknowledgement of what they got.
void HostLinkTransportLayer::Private::exchange(Lock& lock)
{
    port.receive(HostLinkClock::now(), &lock);
    deliver(lock);
    flush(lock);
    reportDrained(lock);
}

void HostLinkTransportLayer::Private::flush(Lock& lock)
{
    flushDue = false;
    port.flush(HostLinkClock::now(), &lock);
}

void HostLinkTransportLayer::Private::deliver(Lock& lock)
{
    while (phase == Phase::Running && port.core().take(message)) {
        for (const MessageReceivedObserver& observer : observers) {
            call(lock, [&] { observer(message); });
        }
    }
}

void HostLinkTransportLayer::Private::reportDrained(Lock& lock)
{
    if (!bulkFull || !hasBulkRoom()) {
        return;
    }
    bulkFull = false;
    const auto called = drainedObservers; // more may come while one runs
    for (const std::function<void()>& observer : called) {
        call(lock, observer);
    }
}

/// Calls an observer without the lock, unless the transport has been stopped.
template <typename Observer>
void HostLinkTransportLayer::Private::call(Lock& lock, Observer observer)
{
    if (phase != Phase::Running) {
        return;
    }
    observing = true;
    lock.unlock();
    observer();
    lock.lock();
    observing = false;
}

void HostLinkTransportLayer::Private::sleep(Lock& lock, HostLinkTime latest)
{
    if (flushDue) {
        return; // somebody sent while an observer ran
    }
    descriptors.assign(1, pollfd{wakeUp.get(), POLLIN, 0});
    port.waitOn(descriptors);
    pollsForRoom = port.writing();
    sleepsUntil = std::min(latest, port.deadline());
    const HostLinkTime now = HostLinkClock::now();
    if (!port.layer().blocks() && now < lastSend + kBusyAfterSend) {
        sleepsUntil = std::min(sleepsUntil, now + kShortSleep);
    }
    const HostLinkTime until = sleepsUntil;
    lock.unlock();
    pollUntil(descriptors, until);
    lock.lock();
    sleepsUntil = HostLinkTime::min();
    if (descriptors.front().revents != 0) {
        eventfd_t count = 0;
        ::eventfd_read(wakeUp.get(), &count);
    }
}

bool HostLinkTransportLayer::Private::worthFlushing() const
{
    return phase == Phase::Stopping && port.layer().lineNumber() != 0
           && port.core().session() != HostLinkCore::Session::Ended
           && !port.core().allAcknowledged(MessageClass::State);
}

void HostLinkTransportLayer::Private::flushAndSayGoodbye(Lock& lock)
{
    if (phase != Phase::Stopping || std::exchange(goodbyeBegun, true)) {
        return;
    }
    while (worthFlushing() && HostLinkClock::now() < stopBegan + kStopFlush) {
        port.receive(HostLinkClock::now(), &lock);
        flush(lock);
        if (worthFlushing()) {
            sleep(lock, stopBegan + kStopFlush);
        }
    }
    port.core().goodbye(HostLinkClock::now());
    flush(lock);
    while (phase == Phase::Stopping && port.sending() && HostLinkClock::now() < stopBegan + kStopGoodbye) {
        sleep(lock, stopBegan + kStopGoodbye);
        flush(lock);
    }
}

/// After a change of the core on any thread: writes what it has to say now, and wakes the thread only
/// for what cannot wait until it wakes anyway.
void HostLinkTransportLayer::Private::sendOut(HostLinkTime now)
{
    if (port.layer().blocks()) {
        flushDue = true;
        wake();
        return;
    }
    port.flush(now);
    const bool drained = bulkFull && hasBulkRoom();
    if (port.deadline() < sleepsUntil || (port.writing() && !pollsForRoom) || drained) {
        wake();
    }
}

void HostLinkTransportLayer::Private::wake()
{
    if (sleepsUntil == HostLinkTime::min()) {
        return; // it is awake, and looks at everything before it sleeps
    }
    sleepsUntil = HostLinkTime::min();
    ::eventfd_write(wakeUp.get(), 1);
}

void HostLinkTransportLayer::Private::noteFull(MessageClass messageClass)
{
    bulkFull = bulkFull || (messageClass == MessageClass::Bulk && !hasBulkRoom());
}

/// True when the bulk queue has drained and is open to new messages at all.
bool HostLinkTransportLayer::Private::hasBulkRoom() const
{
    return port.core().queuedBytes(MessageClass::Bulk) <= drainedBytes
           && port.core().writable(MessageClass::Bulk, 1);
}
