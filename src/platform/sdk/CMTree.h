#pragma once

#include <QHash>
#include <QStringList>
#include <vector>

#include "platform/sdk/CMError.h"
#include "platform/sdk/CMNode.h"
#include "platform/sdk/CMPath.h"

class CMItem;
class CMValueItem;

/// The node tree of the process: what stands at each path and who watches it. Paths are found by hash,
/// so that neither finding nor notifying depends on the number of nodes. Private to the library; one
/// thread uses it.
class CMTree
{
public:
    static CMTree& instance();

    /// The node at a path, or nullptr.
    CMNode* node(const CMPath& path) const;
    CMValueNode* valueNode(const CMPath& path) const;

    /// A write from outside. Returns why the node was left as it is, or no error.
    CMError write(const CMPath& path, const VornValue& value);

    /// Tells the watchers of a path that its node's value or roles may have changed.
    void notify(const CMPath& path);

    bool isWatched(const CMPath& path) const;

    QStringList list(const QString& prefix) const;

    void add(CMNode* node);
    void remove(CMNode* node);
    void add(CMValueItem* item);
    void remove(CMValueItem* item);
    void add(CMItem* item);
    void remove(CMItem* item);

    void addSubtree(CMNodes* owner, const CMPath& path, CMNodes::Creator create);
    void removeSubtrees(CMNodes* owner);

private:
    struct Entry {
        CMNode* node = nullptr;
        std::vector<CMValueItem*> valueItems;
        std::vector<CMItem*> items;
    };
    struct Subtree {
        CMNodes* owner;
        CMNodes::Creator create;
    };

    CMTree() = default;
    void createOnWrite(const CMPath& path);
    void forgetIfUnused(const CMPath& path);
    template <typename Item>
    static void deliver(Item* item);

    QHash<CMPath, Entry> m_entries;
    QHash<CMPath, Subtree> m_subtrees;
};
