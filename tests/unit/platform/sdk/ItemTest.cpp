#include <gtest/gtest.h>

#include <memory>

#include "unit/platform/sdk/SdkTest.h"

namespace
{
const CMPath kItemPath(QStringLiteral("/test/item"));

class ItemTest : public ::testing::Test
{
protected:
    CMValueNode* create(const VornValue& value)
    {
        CMValueNode* const node = CMValueNode::create(&m_nodes, kItemPath);
        node->setValue(value);
        return node;
    }

    CMNodes m_nodes;
};
} // namespace

TEST_F(ItemTest, OnAnExistingNodeHasItsValueAndEmitsNothing)
{
    create(i32(5));
    CMValueItem item(nullptr, kItemPath);
    const ValueRecord record(&item);
    EXPECT_EQ(item.value().i32(), 5);
    runEvents();
    EXPECT_EQ(record.count(), 0U);
    EXPECT_EQ(item.path(), kItemPath);
}

TEST_F(ItemTest, BeforeTheNodeIsEmptyThenEmitsValueAndEmpty)
{
    CMValueItem item(nullptr, kItemPath);
    const ValueRecord record(&item);
    EXPECT_TRUE(item.value().isEmpty());
    CMValueNode* const node = CMValueNode::create(&m_nodes, kItemPath);
    EXPECT_EQ(record.count(), 0U);
    node->setValue(i32(5));
    ASSERT_EQ(record.count(), 1U);
    EXPECT_EQ(record.value(0).toJsonString(), R"({"i32_":5})");
    EXPECT_TRUE(record.previous(0).isEmpty());
    EXPECT_EQ(item.value().i32(), 5);
}

TEST_F(ItemTest, ChangeCarriesNewThenPreviousInsideTheWrite)
{
    CMValueNode* const node = create(i32(5));
    CMValueItem item(nullptr, kItemPath);
    const ValueRecord record(&item);
    node->setValue(i32(6));
    ASSERT_EQ(record.count(), 1U);
    EXPECT_EQ(record.value(0).i32(), 6);
    EXPECT_EQ(record.previous(0).i32(), 5);
    node->setValue(i32(7));
    ASSERT_EQ(record.count(), 2U);
    EXPECT_EQ(record.value(1).i32(), 7);
    EXPECT_EQ(record.previous(1).i32(), 6);
}

TEST_F(ItemTest, AfterTheNodeEmitsEmptyAndValue)
{
    CMValueNode* const node = create(i32(5));
    CMValueItem item(nullptr, kItemPath);
    const ValueRecord record(&item);
    delete node;
    ASSERT_EQ(record.count(), 1U);
    EXPECT_TRUE(record.value(0).isEmpty());
    EXPECT_EQ(record.previous(0).i32(), 5);
    EXPECT_TRUE(item.value().isEmpty());
}

TEST_F(ItemTest, WatchesOneNodeAfterTheOther)
{
    CMValueItem item(nullptr, kItemPath);
    const ValueRecord record(&item);
    delete create(i32(1));
    create(text("second"));
    ASSERT_EQ(record.count(), 3U);
    EXPECT_EQ(record.value(0).i32(), 1);
    EXPECT_TRUE(record.value(1).isEmpty());
    EXPECT_EQ(record.value(2).string(), "second");
    EXPECT_TRUE(record.previous(2).isEmpty());
}

TEST_F(ItemTest, NodeWithoutAValueGoesSilently)
{
    CMValueItem item(nullptr, kItemPath);
    const ValueRecord record(&item);
    delete CMValueNode::create(&m_nodes, kItemPath);
    EXPECT_EQ(record.count(), 0U);
}

TEST_F(ItemTest, EqualValuesEmitNothing)
{
    CMValueNode* const node = create(i32(5));
    CMValueItem item(nullptr, kItemPath);
    const ValueRecord record(&item);
    node->setValue(i32(5));
    VornValue wide;
    wide.insert(VornValue::I32(), 5LL);
    node->setValue(wide);
    EXPECT_EQ(record.count(), 0U);
}

TEST_F(ItemTest, HashesAreComparedByContent)
{
    CMValueNode* const node = create(VornHash{{"a", QVariantHash{{"x", 1}}}, {"b", 2}});
    CMValueItem item(nullptr, kItemPath);
    const ValueRecord record(&item);
    node->setValue(VornHash{{"b", 2LL}, {"a", QVariantHash{{"x", 1.0}}}});
    EXPECT_EQ(record.count(), 0U);
    node->setValue(VornHash{{"b", 2}, {"a", QVariantHash{{"x", 2}}}});
    EXPECT_EQ(record.count(), 1U);
}

TEST_F(ItemTest, SeesItsOwnPathOnly)
{
    CMValueNode* const node = create(i32(5));
    CMValueItem parent(nullptr, CMPath(QStringLiteral("/test")));
    CMValueItem child(nullptr, kItemPath.appendSubpath(QStringLiteral("x")));
    CMValueItem other(nullptr, CMPath(QStringLiteral("/test/Item")));
    const ValueRecord records[] = {ValueRecord(&parent), ValueRecord(&child), ValueRecord(&other)};
    node->setValue(i32(6));
    for (const ValueRecord& record : records) {
        EXPECT_EQ(record.count(), 0U);
    }
}

TEST_F(ItemTest, ManyItemsWatchOnePathInTheOrderOfTheirMaking)
{
    CMValueNode* const node = create(i32(0));
    std::vector<std::unique_ptr<CMValueItem>> items;
    std::vector<int> order;
    for (int i = 0; i < 5; ++i) {
        items.push_back(std::make_unique<CMValueItem>(nullptr, kItemPath));
        QObject::connect(items.back().get(), &CMValueItem::changed, [&order, i] { order.push_back(i); });
    }
    items.erase(items.begin() + 1);
    node->setValue(i32(1));
    EXPECT_EQ(order, (std::vector<int>{0, 2, 3, 4}));
}

TEST_F(ItemTest, GoesWithItsParent)
{
    CMValueNode* const node = create(i32(0));
    auto parent = std::make_unique<QObject>();
    int changes = 0;
    QObject::connect(new CMValueItem(parent.get(), kItemPath), &CMValueItem::changed,
                     [&changes] { ++changes; });
    node->setValue(i32(1));
    parent.reset();
    node->setValue(i32(2));
    EXPECT_EQ(changes, 1);
}

TEST_F(ItemTest, ActivateNodeHasNoValue)
{
    CMActivateNode::create(
        &m_nodes, kItemPath, &m_nodes, [](const CMSetDataRequest&) {}, Qt::DirectConnection);
    const CMValueItem item(nullptr, kItemPath);
    EXPECT_TRUE(item.value().isEmpty());
}

TEST_F(ItemTest, OfRolesHasThemAtOnce)
{
    CMValueNode* const node = create(i32(5));
    node->setRoles(VornRoles().setTitle("Volume"));
    CMItem item(nullptr, kItemPath);
    const RolesRecord record(&item);
    EXPECT_EQ(item.roles().title(), "Volume");
    EXPECT_EQ(item.roles().value().i32(), 5);
    EXPECT_EQ(item.path(), kItemPath);
    EXPECT_EQ(record.count(), 0U);
}

TEST_F(ItemTest, OfRolesSeesTheValueAndTheOtherRoles)
{
    CMItem item(nullptr, kItemPath);
    const RolesRecord record(&item);
    EXPECT_TRUE(item.roles().isEmpty());
    CMValueNode* const node = create(i32(5));
    node->setRoles(VornRoles().setEdit(VornEdit().setMax(i32(100))));
    node->setValue(i32(6));
    delete node;
    ASSERT_EQ(record.count(), 4U);
    EXPECT_EQ(record.value(0).toJsonString(), R"({"value":{"i32_":5}})");
    EXPECT_TRUE(record.previous(0).isEmpty());
    EXPECT_EQ(record.value(1).edit().max().i32(), 100);
    EXPECT_TRUE(record.previous(1).edit().isEmpty());
    EXPECT_EQ(record.value(2).value().i32(), 6);
    EXPECT_EQ(record.previous(2).value().i32(), 5);
    EXPECT_TRUE(record.value(3).isEmpty());
    EXPECT_EQ(record.previous(3).edit().max().i32(), 100);
}

TEST_F(ItemTest, EqualRolesEmitNothing)
{
    CMValueNode* const node = create(i32(5));
    node->setRoles(VornRoles().setTitle("Volume"));
    CMItem item(nullptr, kItemPath);
    const RolesRecord record(&item);
    node->setRoles(VornRoles().setTitle("Volume"));
    node->setRoles(VornRoles().setTitle("Volume").setValue(i32(77)));
    EXPECT_EQ(record.count(), 0U);
}

TEST_F(ItemTest, OfValuesIgnoresTheOtherRoles)
{
    CMValueNode* const node = create(i32(5));
    CMValueItem item(nullptr, kItemPath);
    const ValueRecord record(&item);
    node->setRoles(VornRoles().setTitle("Volume"));
    EXPECT_EQ(record.count(), 0U);
}
