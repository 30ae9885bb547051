#pragma once

#include <QCoreApplication>
#include <utility>
#include <vector>

#include "platform/sdk/CMItem.h"
#include "platform/sdk/CMNode.h"
#include "platform/sdk/CMReply.h"
#include "platform/sdk/CMWorker.h"

inline VornValue i32(int number)
{
    return VornValue().setI32(number);
}

inline VornValue text(const QString& text)
{
    return VornValue().setString(text);
}

/// Runs what is posted, and what that posts, until nothing is left.
inline void runEvents()
{
    for (int turn = 0; turn < 10; ++turn) {
        QCoreApplication::sendPostedEvents();
    }
}

/// Every (value, previous) that an item emitted.
template <typename Item, typename Value>
class Record
{
public:
    explicit Record(Item* item)
    {
        QObject::connect(item, &Item::changed, [this](const Value& value, const Value& previous) {
            m_changes.emplace_back(value, previous);
        });
    }

    std::size_t count() const { return m_changes.size(); }
    const Value& value(std::size_t i) const { return m_changes.at(i).first; }
    const Value& previous(std::size_t i) const { return m_changes.at(i).second; }

private:
    std::vector<std::pair<Value, Value>> m_changes;
};

using ValueRecord = Record<CMValueItem, VornValue>;
using RolesRecord = Record<CMItem, VornRoles>;
