#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QObject>

#include "platform/sdk/CMPath.h"
#include "platform/sdk/CMSetDataRequest.h"
#include "platform/sdk/MetaTypes.h"
#include "platform/sdk/VornRoles.h"

class MetaTypesTestObject : public QObject
{
    Q_OBJECT
public:
    QList<State> seen;
    CMPath path;

signals:
    void statesChanged(const QList<State>& states);
    void pathChanged(const CMPath& path);

public slots:
    void take(const QList<State>& states) { seen = states; }
    void takePath(const CMPath& at) { path = at; }
};

TEST(MetaTypes, AreKnownByName)
{
    registerSdkMetaTypes();
    registerSdkMetaTypes();
    for (const char* name : {"CMPath", "VornHash", "VornValue", "VornRoles", "CMError", "CMSetDataRequest",
                             "State", "QList<State>"}) {
        EXPECT_NE(QMetaType::type(name), static_cast<int>(QMetaType::UnknownType)) << name;
    }
}

TEST(MetaTypes, TravelThroughQueuedConnections)
{
    registerSdkMetaTypes();
    MetaTypesTestObject object;
    QObject::connect(&object, SIGNAL(statesChanged(QList<State>)), &object, SLOT(take(QList<State>)),
                     Qt::QueuedConnection);
    QObject::connect(&object, SIGNAL(pathChanged(CMPath)), &object, SLOT(takePath(CMPath)),
                     Qt::QueuedConnection);
    emit object.statesChanged({STA_Volume, State(0xFFFF)});
    emit object.pathChanged(CMPath(QStringLiteral("/a")));
    EXPECT_TRUE(object.seen.isEmpty());
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(object.seen, (QList<State>{STA_Volume, State(0xFFFF)}));
    EXPECT_EQ(object.path, CMPath(QStringLiteral("/a")));
}

TEST(MetaTypes, RecordsConvertToHashes)
{
    EXPECT_EQ(QVariant::fromValue(VornValue().setI32(5)).toHash(), (QVariantHash{{"i32_", 5}}));
    EXPECT_EQ(QVariant::fromValue(VornRoles().setTitle("t")).toHash(), (QVariantHash{{"title", "t"}}));
    EXPECT_EQ(QVariant::fromValue(VornHash{{"a", 1}}).toHash(), (QVariantHash{{"a", 1}}));
}

#include "MetaTypesTest.moc"
