#include "platform/sdk/CMQueue.h"

#include <QCoreApplication>
#include <QEvent>

CMQueue& CMQueue::instance()
{
    // Never destroyed: nodes and replies may outlive any order of static destruction.
    static CMQueue* const queue = new CMQueue;
    return *queue;
}

void CMQueue::post(std::function<void()> task)
{
    m_tasks.push_back(std::move(task));
    wake();
}

bool CMQueue::runOne()
{
    if (m_tasks.empty()) {
        return false;
    }
    const std::function<void()> task = std::move(m_tasks.front());
    m_tasks.pop_front();
    task();
    return true;
}

bool CMQueue::event(QEvent* event)
{
    if (event->type() != QEvent::User) {
        return QObject::event(event);
    }
    m_woken = false;
    // Tasks that tasks post take another turn of the event loop, so that they never starve it.
    for (std::size_t left = m_tasks.size(); left > 0 && runOne(); --left) {
    }
    return true;
}

void CMQueue::wake()
{
    if (!m_woken) {
        m_woken = true;
        QCoreApplication::postEvent(this, new QEvent(QEvent::User));
    }
}
