#include <gtest/gtest.h>

#include <memory>

#include "unit/platform/sdk/SdkTest.h"

namespace
{
const CMPath kReentryPath(QStringLiteral("/test/reentry"));
const CMPath kOther(QStringLiteral("/test/reentry/other"));

class ReentryTest : public ::testing::Test
{
protected:
    template <typename Handler>
    static void onChange(CMValueItem* item, Handler handler)
    {
        QObject::connect(item, &CMValueItem::changed, handler);
    }

    CMNodes m_nodes;
    QPointer<CMValueNode> m_node = CMValueNode::create(&m_nodes, kReentryPath);
};
} // namespace

TEST_F(ReentryTest, NestedWriteReachesEachWatcherLast)
{
    CMValueItem first(nullptr, kReentryPath);
    CMValueItem second(nullptr, kReentryPath);
    const ValueRecord before(&first);
    onChange(&first, [this](const VornValue& value) {
        if (value.i32() < 3) {
            m_node->setValue(i32(value.i32() + 1));
        }
    });
    const ValueRecord after(&first);
    const ValueRecord other(&second);
    m_node->setValue(i32(1));
    for (const ValueRecord* record : {&before, &after}) {
        ASSERT_EQ(record->count(), 3U);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(record->value(i).i32(), i + 1);
            EXPECT_EQ(record->previous(i).i32(), i);
        }
    }
    ASSERT_GE(other.count(), 1U);
    EXPECT_EQ(other.value(other.count() - 1).i32(), 3);
    EXPECT_TRUE(other.previous(0).isEmpty());
    EXPECT_EQ(first.value().i32(), 3);
    EXPECT_EQ(second.value().i32(), 3);
}

TEST_F(ReentryTest, PreviousIsAlwaysWhatTheWatcherHadLast)
{
    CMValueItem first(nullptr, kReentryPath);
    CMValueItem second(nullptr, kReentryPath);
    const ValueRecord record(&first);
    onChange(&second, [this](const VornValue& value) {
        if (value.i32() == 1) {
            m_node->setValue(i32(2));
        }
    });
    m_node->setValue(i32(1));
    ASSERT_EQ(record.count(), 2U);
    EXPECT_EQ(record.value(0).i32(), 1);
    EXPECT_EQ(record.value(1).i32(), 2);
    EXPECT_EQ(record.previous(1).i32(), 1);
}

TEST_F(ReentryTest, ValueSetBackInsideEndsOnTheOldValue)
{
    m_node->setValue(i32(1));
    CMValueItem first(nullptr, kReentryPath);
    CMValueItem second(nullptr, kReentryPath);
    const ValueRecord record(&first);
    const ValueRecord other(&second);
    onChange(&first, [this](const VornValue& value) {
        if (value.i32() == 2) {
            m_node->setValue(i32(1));
        }
    });
    m_node->setValue(i32(2));
    ASSERT_EQ(record.count(), 2U);
    EXPECT_EQ(record.value(1).i32(), 1);
    EXPECT_EQ(other.count(), 0U); // it never saw another value
    EXPECT_EQ(second.value().i32(), 1);
}

TEST_F(ReentryTest, AllItemsHaveTheValueBeforeTheFirstEmits)
{
    CMValueItem first(nullptr, kReentryPath);
    CMValueItem second(nullptr, kReentryPath);
    CMItem roles(nullptr, kReentryPath);
    int seen = 0;
    onChange(&first, [&] {
        seen = second.value().i32() + roles.roles().value().i32()
               + VornValue(CMRoot()->getValue(kReentryPath).toHash()).i32();
    });
    m_node->setValue(i32(5));
    EXPECT_EQ(seen, 15);
}

TEST_F(ReentryTest, ItemHasTheNewestValueDuringANestedWrite)
{
    CMValueItem item(nullptr, kReentryPath);
    int seen = 0;
    onChange(&item, [&](const VornValue& value) {
        if (value.i32() == 1) {
            m_node->setValue(i32(2));
            seen = item.value().i32();
        }
    });
    m_node->setValue(i32(1));
    EXPECT_EQ(seen, 2);
}

TEST_F(ReentryTest, HandlerMayDestroyTheNode)
{
    CMValueItem first(nullptr, kReentryPath);
    CMValueItem second(nullptr, kReentryPath);
    const ValueRecord record(&second);
    onChange(&first, [this] { delete m_node.data(); });
    m_node->setValue(i32(1));
    EXPECT_TRUE(m_node.isNull());
    EXPECT_TRUE(second.value().isEmpty());
    EXPECT_EQ(record.count(), 0U);
    EXPECT_FALSE(CMRoot()->getValue(kReentryPath).isValid());
}

TEST_F(ReentryTest, HandlerMayDestroyAllNodes)
{
    auto nodes = std::make_unique<CMNodes>();
    CMValueNode* const node = CMValueNode::create(nodes.get(), kOther);
    CMValueItem item(nullptr, kOther);
    onChange(&item, [&nodes] { nodes.reset(); });
    node->setValue(i32(1));
    EXPECT_TRUE(CMNodes::list(kOther.toString()).isEmpty());
}

TEST_F(ReentryTest, HandlerMayDestroyItsOwnItem)
{
    auto* const item = new CMValueItem(nullptr, kReentryPath);
    CMValueItem second(nullptr, kReentryPath);
    const ValueRecord record(&second);
    onChange(item, [item] { delete item; });
    m_node->setValue(i32(1));
    m_node->setValue(i32(2));
    EXPECT_EQ(record.count(), 2U);
}

TEST_F(ReentryTest, HandlerMayDestroyItsItemsParentAfterANestedWrite)
{
    auto* const parent = new QObject;
    auto* const item = new CMValueItem(parent, kReentryPath);
    onChange(item, [this, parent] {
        m_node->setValue(i32(2));
        delete parent;
    });
    m_node->setValue(i32(1));
    EXPECT_EQ(m_node->value().i32(), 2);
}

TEST_F(ReentryTest, HandlerMayDestroyTheNextItem)
{
    CMValueItem first(nullptr, kReentryPath);
    auto second = std::make_unique<CMValueItem>(nullptr, kReentryPath);
    auto third = std::make_unique<CMItem>(nullptr, kReentryPath);
    int changes = 0;
    onChange(second.get(), [&changes] { ++changes; });
    QObject::connect(third.get(), &CMItem::changed, [&changes] { ++changes; });
    onChange(&first, [&] {
        second.reset();
        third.reset();
    });
    m_node->setValue(i32(1));
    EXPECT_EQ(changes, 0);
}

TEST_F(ReentryTest, ItemMadeInAHandlerHasTheValueAndEmitsNothing)
{
    CMValueItem first(nullptr, kReentryPath);
    std::unique_ptr<CMValueItem> late;
    int changes = 0;
    onChange(&first, [&] {
        if (late == nullptr) {
            late = std::make_unique<CMValueItem>(nullptr, kReentryPath);
            onChange(late.get(), [&changes] { ++changes; });
        }
    });
    m_node->setValue(i32(1));
    EXPECT_EQ(late->value().i32(), 1);
    EXPECT_EQ(changes, 0);
    m_node->setValue(i32(2));
    EXPECT_EQ(changes, 1);
}

TEST_F(ReentryTest, HandlerMayCreateManyNodesAndItems)
{
    CMValueItem item(nullptr, kReentryPath);
    CMValueItem second(nullptr, kReentryPath);
    const ValueRecord record(&second);
    std::vector<std::unique_ptr<CMValueItem>> items;
    onChange(&item, [&] {
        for (int i = 0; i < 1000; ++i) { // enough for every container to grow
            const CMPath path = kReentryPath.appendSubpath(QString::number(i));
            CMValueNode::create(&m_nodes, path)->setValue(i32(i));
            items.push_back(std::make_unique<CMValueItem>(nullptr, kReentryPath));
        }
    });
    m_node->setValue(i32(1));
    EXPECT_EQ(record.count(), 1U);
    EXPECT_EQ(items.back()->value().i32(), 1);
}

TEST_F(ReentryTest, NodeMayComeBackWhileItsEndIsTold)
{
    m_node->setValue(i32(1));
    CMValueItem item(nullptr, kReentryPath);
    const ValueRecord record(&item);
    onChange(&item, [this](const VornValue& value) {
        if (value.isEmpty()) {
            m_node = CMValueNode::create(&m_nodes, kReentryPath);
            m_node->setValue(text("again"));
        }
    });
    delete m_node.data();
    ASSERT_EQ(record.count(), 2U);
    EXPECT_TRUE(record.value(0).isEmpty());
    EXPECT_EQ(record.value(1).string(), "again");
    EXPECT_EQ(CMRoot()->getValue(kReentryPath).toHash(), (QVariantHash{{"string_", "again"}}));
}

TEST_F(ReentryTest, HandlersOfTwoPathsMayWriteEachOther)
{
    CMValueNode* const other = CMValueNode::create(&m_nodes, kOther);
    CMValueItem item(nullptr, kReentryPath);
    CMValueItem otherItem(nullptr, kOther);
    onChange(&item, [other](const VornValue& value) { other->setValue(value); });
    onChange(&otherItem, [this](const VornValue& value) {
        if (value.i32() < 10) {
            m_node->setValue(i32(value.i32() + 1));
        }
    });
    const ValueRecord record(&otherItem);
    m_node->setValue(i32(1));
    EXPECT_EQ(item.value().i32(), 10);
    EXPECT_EQ(otherItem.value().i32(), 10);
    EXPECT_EQ(record.value(record.count() - 1).i32(), 10);
}

TEST_F(ReentryTest, ValueMayBeAReferenceIntoTheTree)
{
    m_node->setValue(i32(1));
    CMValueItem item(nullptr, kReentryPath);
    CMValueNode* const other = CMValueNode::create(&m_nodes, kOther);
    CMValueItem otherItem(nullptr, kOther);
    other->setValue(i32(2));
    onChange(&item, [this] { delete m_node.data(); });
    m_node->setValue(otherItem.value());
    other->setValue(other->value());
    EXPECT_EQ(other->value().i32(), 2);
}

TEST_F(ReentryTest, RolesAreSafeInTheSameWay)
{
    auto* const item = new CMItem(nullptr, kReentryPath);
    CMItem second(nullptr, kReentryPath);
    const RolesRecord record(&second);
    QObject::connect(item, &CMItem::changed, [this, item] {
        m_node->setRoles(VornRoles().setTitle("newest"));
        delete item;
    });
    m_node->setRoles(VornRoles().setTitle("first"));
    ASSERT_EQ(record.count(), 1U);
    EXPECT_EQ(record.value(0).title(), "newest");
    EXPECT_TRUE(record.previous(0).isEmpty());
}
