#include "platform/sdk/CMItem.h"

#include "platform/sdk/CMTree.h"

CMValueItem::CMValueItem(QObject* parent, const CMPath& path) : QObject(parent), m_path(path)
{
    CMTree::instance().add(this);
}

CMValueItem::~CMValueItem()
{
    CMTree::instance().remove(this);
}

CMItem::CMItem(QObject* parent, const CMPath& path) : QObject(parent), m_path(path)
{
    CMTree::instance().add(this);
}

CMItem::~CMItem()
{
    CMTree::instance().remove(this);
}
