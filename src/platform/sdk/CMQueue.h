#pragma once

#include <QObject>
#include <deque>
#include <functional>

/// What the node tree has to do later: tasks in order, run from the event loop of the tree's thread.
/// Private to the library; for the tree's thread only.
///
/// The tasks are not events of their own, so that a waiting reply can run them alone.
class CMQueue : public QObject
{
public:
    static CMQueue& instance();

    void post(std::function<void()> task);

    /// Runs the oldest task; false when there is none.
    bool runOne();

protected:
    bool event(QEvent* event) override;

private:
    CMQueue() = default;
    void wake();

    std::deque<std::function<void()>> m_tasks;
    bool m_woken = false; ///< one event is under way for all tasks
};
