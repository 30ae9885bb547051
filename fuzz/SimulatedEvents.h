#pragma once

#include <poll.h>

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QPointer>
#include <QSocketNotifier>
#include <QTimerEvent>
#include <algorithm>
#include <chrono>
#include <vector>

extern uint qGlobalPostedEventsCount(); // of Qt, for its event dispatchers

/// The application's events on simulated time: a timer runs when pass() has let its time come. Descriptors
/// are looked at without a wait.
class SimulatedEvents : public QAbstractEventDispatcher
{
public:
    using Milliseconds = std::chrono::milliseconds;

    /// To be called before there is an application, which owns it then.
    static void install() { QCoreApplication::setEventDispatcher(new SimulatedEvents); }

    static SimulatedEvents& instance()
    {
        return static_cast<SimulatedEvents&>(*QCoreApplication::eventDispatcher());
    }

    Milliseconds now() const { return m_now; }

    /// Runs all that is due, and what that causes.
    void settle()
    {
        while (processEvents(QEventLoop::AllEvents)) {
        }
    }

    /// Lets time pass, with a stop at each timer that is due meanwhile.
    void pass(Milliseconds duration)
    {
        const Milliseconds end = m_now + duration;
        for (settle(); nextDue() <= end; settle()) {
            m_now = nextDue();
        }
        m_now = end;
    }

    bool processEvents(QEventLoop::ProcessEventsFlags) override
    {
        QCoreApplication::sendPostedEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        const bool isTimer = runTimer();
        const bool isDescriptor = runNotifiers();
        return isTimer || isDescriptor || hasPendingEvents();
    }

    bool hasPendingEvents() override { return qGlobalPostedEventsCount() > 0; }

    void registerSocketNotifier(QSocketNotifier* notifier) override { m_notifiers.push_back(notifier); }
    void unregisterSocketNotifier(QSocketNotifier* notifier) override
    {
        m_notifiers.erase(std::remove(m_notifiers.begin(), m_notifiers.end(), notifier), m_notifiers.end());
    }

    void registerTimer(int id, int interval, Qt::TimerType type, QObject* object) override
    {
        m_timers.push_back({id, Milliseconds(interval), type, object, m_now + Milliseconds(interval)});
    }
    bool unregisterTimer(int id) override
    {
        return removeTimers([id](const Timer& timer) { return timer.id == id; });
    }
    bool unregisterTimers(QObject* object) override
    {
        return removeTimers([object](const Timer& timer) { return timer.object == object; });
    }
    QList<TimerInfo> registeredTimers(QObject* object) const override
    {
        QList<TimerInfo> found;
        for (const Timer& timer : m_timers) {
            if (timer.object == object) {
                found.append(TimerInfo(timer.id, static_cast<int>(timer.interval.count()), timer.type));
            }
        }
        return found;
    }
    int remainingTime(int id) override
    {
        for (const Timer& timer : m_timers) {
            if (timer.id == id) {
                return static_cast<int>((std::max(timer.due, m_now) - m_now).count());
            }
        }
        return -1;
    }

    void wakeUp() override {}
    void interrupt() override {}
    void flush() override {}

private:
    struct Timer {
        int id;
        Milliseconds interval;
        Qt::TimerType type;
        QObject* object;
        Milliseconds due;
    };

    template <typename Condition>
    bool removeTimers(Condition condition)
    {
        const auto end = std::remove_if(m_timers.begin(), m_timers.end(), condition);
        const bool isAny = end != m_timers.end();
        m_timers.erase(end, m_timers.end());
        return isAny;
    }

    std::vector<Timer>::iterator earliest()
    {
        return std::min_element(m_timers.begin(), m_timers.end(),
                                [](const Timer& a, const Timer& b) { return a.due < b.due; });
    }

    Milliseconds nextDue() { return m_timers.empty() ? Milliseconds::max() : earliest()->due; }

    /// Runs the timer that is due first. It is due again after a while, even if that is no time.
    bool runTimer()
    {
        if (nextDue() > m_now) {
            return false;
        }
        const auto timer = earliest();
        timer->due = m_now + std::max(timer->interval, Milliseconds(1));
        QTimerEvent event(timer->id);
        QCoreApplication::sendEvent(timer->object, &event);
        return true;
    }

    bool runNotifiers()
    {
        std::vector<pollfd> descriptors;
        std::vector<QPointer<QSocketNotifier>> notifiers;
        for (QSocketNotifier* notifier : m_notifiers) {
            const bool isRead = notifier->type() == QSocketNotifier::Read;
            descriptors.push_back(
                {static_cast<int>(notifier->socket()), short(isRead ? POLLIN : POLLOUT), 0});
            notifiers.emplace_back(notifier);
        }
        ::poll(descriptors.data(), descriptors.size(), 0);
        bool isAny = false;
        for (std::size_t i = 0; i < descriptors.size(); ++i) {
            if (descriptors[i].revents != 0 && notifiers[i] && notifiers[i]->isEnabled()) {
                QEvent event(QEvent::SockAct);
                QCoreApplication::sendEvent(notifiers[i], &event);
                isAny = true;
            }
        }
        return isAny;
    }

    Milliseconds m_now{0};
    std::vector<Timer> m_timers;
    std::vector<QSocketNotifier*> m_notifiers;
};
