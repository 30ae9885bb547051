#include "platform/sdk/CMTree.h"

#include <QPointer>
#include <algorithm>
#include <utility>

#include "platform/sdk/CMItem.h"

namespace
{
VornValue valueOf(const CMValueNode* node)
{
    return node == nullptr ? VornValue() : node->value();
}

VornRoles rolesOf(const CMValueNode* node)
{
    return node == nullptr ? VornRoles() : node->roles();
}

template <typename Item>
void removeFrom(std::vector<Item*>& items, Item* item)
{
    items.erase(std::remove(items.begin(), items.end(), item), items.end());
}

/// The items, each known to be alive or not while handlers run.
template <typename Item>
std::vector<QPointer<Item>> guarded(const std::vector<Item*>& items)
{
    return {items.begin(), items.end()};
}

CMPath parentOf(const CMPath& path)
{
    return CMPath(path.toString().left(std::max(0, path.toString().lastIndexOf('/'))));
}
} // namespace

CMTree& CMTree::instance()
{
    // Never destroyed: nodes and items may outlive any order of static destruction.
    static CMTree* const tree = new CMTree;
    return *tree;
}

CMNode* CMTree::node(const CMPath& path) const
{
    const auto entry = m_entries.constFind(path);
    return entry == m_entries.constEnd() ? nullptr : entry->node;
}

CMValueNode* CMTree::valueNode(const CMPath& path) const
{
    return qobject_cast<CMValueNode*>(node(path));
}

CMError CMTree::write(const CMPath& path, const VornValue& value)
{
    if (node(path) == nullptr) {
        createOnWrite(path);
    }
    if (node(path) == nullptr) {
        return {CMError::NoSuchNode, QStringLiteral("%1: no such node").arg(path.toString())};
    }
    CMValueNode* const target = valueNode(path);
    if (target == nullptr) {
        return {CMError::WrongType, QStringLiteral("%1: holds no value").arg(path.toString())};
    }
    if (target->isReadOnly()) {
        return {CMError::ReadOnly, QStringLiteral("%1: read-only").arg(path.toString())};
    }
    if (!target->accepts(value)) {
        return {CMError::WrongType, QStringLiteral("%1: takes %2, not %3")
                                        .arg(path.toString(), VornValue::typeName(target->type()),
                                             VornValue::typeName(value.type()))};
    }
    if (const QString objection = target->objection(value); !objection.isEmpty()) {
        return {CMError::Refused, path.toString() + ": " + objection};
    }
    target->setValue(value);
    return {};
}

void CMTree::notify(const CMPath& path)
{
    const auto entry = m_entries.constFind(path);
    if (entry == m_entries.constEnd()) {
        return;
    }
    const CMValueNode* const source = valueNode(path);
    for (CMValueItem* item : entry->valueItems) {
        item->m_watched.current = valueOf(source);
    }
    for (CMItem* item : entry->items) {
        item->m_watched.current = rolesOf(source);
    }
    const auto valueItems = guarded(entry->valueItems);
    const auto items = guarded(entry->items);
    std::for_each(valueItems.begin(), valueItems.end(), [](CMValueItem* item) { deliver(item); });
    std::for_each(items.begin(), items.end(), [](CMItem* item) { deliver(item); });
}

template <typename Item>
void CMTree::deliver(Item* item)
{
    const QPointer<Item> alive(item);
    if (!alive || item->m_watched.delivering) {
        return;
    }
    item->m_watched.delivering = true;
    while (alive && !item->m_watched.current.sameAs(item->m_watched.delivered)) {
        const auto value = item->m_watched.current;
        const auto previous = std::exchange(item->m_watched.delivered, value);
        emit item->changed(value, previous);
    }
    if (alive) {
        item->m_watched.delivering = false;
    }
}

bool CMTree::isWatched(const CMPath& path) const
{
    const auto entry = m_entries.constFind(path);
    return entry != m_entries.constEnd() && !entry->valueItems.empty();
}

QStringList CMTree::list(const QString& prefix) const
{
    QStringList paths;
    for (auto entry = m_entries.begin(); entry != m_entries.end(); ++entry) {
        if (entry->node != nullptr && entry.key().toString().startsWith(prefix)) {
            paths.append(entry.key().toString());
        }
    }
    paths.sort();
    return paths;
}

void CMTree::add(CMNode* node)
{
    Entry& entry = m_entries[node->path()];
    if (entry.node != nullptr) {
        qFatal("%s: there is a node already", qPrintable(node->path().toString()));
    }
    entry.node = node;
}

void CMTree::remove(CMNode* node)
{
    // A copy, since who is notified may do anything to the node.
    // NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
    const CMPath path = node->path();
    m_entries[path].node = nullptr;
    notify(path);
    forgetIfUnused(path);
}

void CMTree::add(CMValueItem* item)
{
    m_entries[item->path()].valueItems.push_back(item);
    item->m_watched.current = valueOf(valueNode(item->path()));
    item->m_watched.delivered = item->m_watched.current;
}

void CMTree::remove(CMValueItem* item)
{
    removeFrom(m_entries[item->path()].valueItems, item);
    forgetIfUnused(item->path());
}

void CMTree::add(CMItem* item)
{
    m_entries[item->path()].items.push_back(item);
    item->m_watched.current = rolesOf(valueNode(item->path()));
    item->m_watched.delivered = item->m_watched.current;
}

void CMTree::remove(CMItem* item)
{
    removeFrom(m_entries[item->path()].items, item);
    forgetIfUnused(item->path());
}

void CMTree::forgetIfUnused(const CMPath& path)
{
    const auto entry = m_entries.find(path);
    if (entry != m_entries.end() && entry->node == nullptr && entry->valueItems.empty()
        && entry->items.empty()) {
        m_entries.erase(entry);
    }
}

void CMTree::addSubtree(CMNodes* owner, const CMPath& path, CMNodes::Creator create)
{
    if (m_subtrees.contains(path)) {
        qFatal("%s: there is an owner already", qPrintable(path.toString()));
    }
    m_subtrees.insert(path, {owner, std::move(create)});
}

void CMTree::removeSubtrees(CMNodes* owner)
{
    for (auto subtree = m_subtrees.begin(); subtree != m_subtrees.end();) {
        subtree = subtree->owner == owner ? m_subtrees.erase(subtree) : std::next(subtree);
    }
}

void CMTree::createOnWrite(const CMPath& path)
{
    for (CMPath above = parentOf(path); !above.isEmpty(); above = parentOf(above)) {
        const auto subtree = m_subtrees.constFind(above);
        if (subtree != m_subtrees.constEnd()) {
            const CMNodes::Creator create = subtree->create; // it may outlive its entry
            create(path);
            return;
        }
    }
}
