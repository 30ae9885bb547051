#include <gtest/gtest.h>

#include "unit/platform/sdk/SdkTest.h"

namespace
{
const CMPath kNodePath(QStringLiteral("/test/node"));
} // namespace

TEST(Node, StartsWithoutAValue)
{
    CMNodes nodes;
    const CMValueNode* const node = CMValueNode::create(&nodes, kNodePath);
    EXPECT_TRUE(node->value().isEmpty());
    EXPECT_EQ(node->path(), kNodePath);
    EXPECT_EQ(node->parent(), &nodes);
    EXPECT_EQ(node->type(), VornValue::Type::Hash);
    EXPECT_FALSE(node->isReadOnly());
    EXPECT_EQ(node->permission(), VornPermission::Unset);
}

TEST(Node, HasTheTypeOfItsFirstValue)
{
    CMNodes nodes;
    CMValueNode* const node = CMValueNode::create(&nodes, kNodePath);
    node->setValue(VornValue());
    EXPECT_EQ(node->type(), VornValue::Type::Hash);
    node->setValue(i32(1));
    EXPECT_EQ(node->type(), VornValue::Type::I32);
    EXPECT_TRUE(node->accepts(i32(2)));
    EXPECT_FALSE(node->accepts(text("2")));
    EXPECT_FALSE(node->accepts(VornValue()));
}

TEST(Node, TypeStaysThroughTheOwnersOtherValues)
{
    CMNodes nodes;
    CMValueNode* const node = CMValueNode::create(&nodes, kNodePath);
    node->setValue(i32(1));
    node->setValue(VornValue());
    EXPECT_TRUE(node->value().isEmpty());
    EXPECT_EQ(node->type(), VornValue::Type::I32);
    EXPECT_FALSE(node->accepts(text("2")));
}

TEST(Node, OfPlainHashesAcceptsAnyHash)
{
    CMNodes nodes;
    CMValueNode* const node = CMValueNode::create(&nodes, kNodePath);
    node->setValue(VornHash{{"name", "x"}});
    EXPECT_TRUE(node->accepts(VornHash{{"other", 1}}));
    EXPECT_TRUE(node->accepts(VornValue()));
    EXPECT_TRUE(node->accepts(i32(5)));
    node->setValue(i32(5));
    EXPECT_TRUE(node->accepts(VornHash{{"other", 1}}));
}

TEST(Node, CarriesItsPermission)
{
    CMNodes nodes;
    CMValueNode* const node = CMValueNode::create(&nodes, kNodePath);
    node->setPermission(VornPermission::Number9999);
    EXPECT_EQ(node->permission(), 9999);
}

TEST(Node, ListHasTheNodesOfAllOwnersAndNoMereWatchers)
{
    CMNodes nodes;
    CMNodes others;
    CMValueNode::create(&nodes, CMPath(QStringLiteral("/list/b")));
    CMValueNode::create(&others, CMPath(QStringLiteral("/list/a")));
    CMActivateNode::create(&nodes, CMPath(QStringLiteral("/list/c")), nullptr, nullptr, Qt::DirectConnection);
    const CMValueItem watched(nullptr, CMPath(QStringLiteral("/list/only-watched")));
    EXPECT_EQ(CMNodes::list("/list/"), (QStringList{"/list/a", "/list/b", "/list/c"}));
    EXPECT_EQ(CMNodes::list("/list/b"), QStringList{"/list/b"});
    EXPECT_EQ(CMNodes::list("/nothing"), QStringList());
    EXPECT_TRUE(CMNodes::list().contains("/list/c"));
}

TEST(Node, ListIsSorted)
{
    CMNodes nodes;
    QStringList expected;
    for (int i = 199; i >= 100; --i) { // enough to stand in another order in any hash
        CMValueNode::create(&nodes, CMPath(QStringLiteral("/list/%1").arg(i)));
        expected.prepend(QStringLiteral("/list/%1").arg(i));
    }
    EXPECT_EQ(CMNodes::list("/list/"), expected);
}

TEST(Node, SourceIsAskedWheneverTheNodeIsReadByItsPath)
{
    CMNodes nodes;
    CMValueNode* const node = CMValueNode::create(&nodes, kNodePath);
    int asked = 0;
    node->setSource([&] { return i32(++asked); });
    EXPECT_TRUE(node->value().isEmpty());
    EXPECT_EQ(CMRoot()->getValue(kNodePath).toHash(), (QVariantHash{{"i32_", 1}}));
    EXPECT_EQ(CMRoot()->getValue(kNodePath).toHash(), (QVariantHash{{"i32_", 2}}));
    CMValueItem item(nullptr, kNodePath);
    Record<CMValueItem, VornValue> record(&item);
    EXPECT_EQ(asked, 2);
    node->refresh();
    EXPECT_EQ(asked, 3);
    ASSERT_EQ(record.count(), 1U);
    EXPECT_EQ(record.value(0).i32(), 3);
    EXPECT_EQ(record.previous(0).i32(), 2);
}

TEST(Node, KnowsWhetherItIsWatched)
{
    CMNodes nodes;
    const CMValueNode* const node = CMValueNode::create(&nodes, kNodePath);
    EXPECT_FALSE(node->isWatched());
    {
        const CMValueItem first(nullptr, kNodePath);
        const CMValueItem second(nullptr, kNodePath);
        EXPECT_TRUE(node->isWatched());
    }
    EXPECT_FALSE(node->isWatched());
}

TEST(Node, GoesWithItsOwner)
{
    auto nodes = std::make_unique<CMNodes>();
    CMValueNode::create(nodes.get(), kNodePath);
    EXPECT_EQ(CMNodes::list(kNodePath.toString()).size(), 1);
    nodes.reset();
    EXPECT_TRUE(CMNodes::list(kNodePath.toString()).isEmpty());
}

TEST(Node, PathIsFreeAgainAfterItsNode)
{
    CMNodes nodes;
    delete CMValueNode::create(&nodes, kNodePath);
    CMValueNode* const second = CMValueNode::create(&nodes, kNodePath);
    second->setValue(text("anew"));
    EXPECT_EQ(CMRoot()->getValue(kNodePath).toHash(), (QVariantHash{{"string_", "anew"}}));
}

TEST(Node, RolesHoldTheValueAndTheOthers)
{
    CMNodes nodes;
    CMValueNode* const node = CMValueNode::create(&nodes, kNodePath);
    EXPECT_TRUE(node->roles().isEmpty());
    node->setRoles(VornRoles().setTitle("Volume").setValue(i32(99)));
    EXPECT_TRUE(node->value().isEmpty());
    EXPECT_EQ(node->roles().toJsonString(), R"({"title":"Volume"})");
    node->setValue(i32(5));
    EXPECT_EQ(node->roles().title(), "Volume");
    EXPECT_EQ(node->roles().value().i32(), 5);
}

TEST(NodeDeathTest, SecondNodeAtAPathIsFatal)
{
    CMNodes nodes;
    CMValueNode::create(&nodes, kNodePath);
    EXPECT_DEATH(CMValueNode::create(&nodes, kNodePath), "/test/node: there is a node already");
}

TEST(NodeDeathTest, SecondClaimOfASubtreeIsFatal)
{
    CMNodes nodes;
    nodes.ownSubtree(kNodePath, [](const CMPath&) {});
    EXPECT_DEATH(nodes.ownSubtree(kNodePath, [](const CMPath&) {}), "/test/node: there is an owner already");
}
