#pragma once

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QTimer>
#include <chrono>

/// Runs the event loop until `predicate` holds; false when the deadline came first.
template <typename Predicate>
bool waitFor(Predicate predicate, std::chrono::milliseconds limit = std::chrono::seconds(10))
{
    const QDeadlineTimer deadline(limit);
    QTimer wake; // the loop waits for events, and at the deadline there must be one
    wake.start(limit);
    while (!predicate()) {
        if (deadline.hasExpired()) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    return true;
}
