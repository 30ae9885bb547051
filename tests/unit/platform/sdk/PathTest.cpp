#include <gtest/gtest.h>

#include <QSet>

#include "platform/sdk/CMPath.h"
#include "platform/sdk/Paths.h"
#include "platform/sdk/PlayLogicInterface.h"

TEST(Path, AppendsOnePartOrMany)
{
    const CMPath path(QStringLiteral("/roon"));
    EXPECT_EQ(path.appendSubpath(QStringLiteral("x")).toString(), "/roon/x");
    EXPECT_EQ(path.appendSubpath(QStringLiteral("a/b")).toString(), "/roon/a/b");
}

TEST(Path, AppendingNeverDoublesTheSeparator)
{
    EXPECT_EQ(CMPath(QStringLiteral("/roon/")).appendSubpath(QStringLiteral("x")).toString(), "/roon/x");
    EXPECT_EQ(CMPath(QStringLiteral("/roon")).appendSubpath(QStringLiteral("/x")).toString(), "/roon/x");
    EXPECT_EQ(CMPath(QStringLiteral("/roon/")).appendSubpath(QStringLiteral("/x")).toString(), "/roon/x");
}

TEST(Path, AppendingNothingLeavesIt)
{
    const CMPath path(QStringLiteral("/roon"));
    EXPECT_EQ(path.appendSubpath(QString()), path);
}

TEST(Path, ComparesByText)
{
    EXPECT_EQ(CMPath(QStringLiteral("/a")), CMPath(QStringLiteral("/a")));
    EXPECT_NE(CMPath(QStringLiteral("/a")), CMPath(QStringLiteral("/A")));
    EXPECT_LT(CMPath(QStringLiteral("/a")), CMPath(QStringLiteral("/b")));
    EXPECT_EQ(qHash(CMPath(QStringLiteral("/a"))), qHash(CMPath(QStringLiteral("/a"))));
}

TEST(Path, OfNothingIsEmpty)
{
    EXPECT_TRUE(CMPath().isEmpty());
    EXPECT_FALSE(VornPlayerVolumePath().isEmpty());
}

TEST(Path, AccessorsGiveTheTablesPaths)
{
    EXPECT_EQ(VornPlayerVolumePath().toString(), "/player/volume");
    EXPECT_EQ(VornKestalPrimeFactroryResetRequiredPath().toString(), "/kestalPrime/factoryResetRequired");
}

TEST(Path, RelativeAccessorExtendsThePlayerInstance)
{
    EXPECT_EQ(VornPlayLogicPlayTimePath().toString(), "/player/instance/playTime");
    EXPECT_EQ(PlayLogicInterface::playerInstance()->path().appendSubpath(QStringLiteral("playTime")),
              VornPlayLogicPlayTimePath());
}

TEST(Path, AllAccessorsDifferAndAreAbsolute)
{
    QSet<CMPath> paths;
    for (const NodeRow& row : kNodes) {
        const CMPath path(row.node);
        EXPECT_TRUE(path.toString().startsWith('/')) << path.toString().toStdString();
        paths.insert(path);
    }
    EXPECT_EQ(paths.size(), static_cast<int>(kNodes.size()));
}

TEST(Path, ThereIsOnePlayerInstance)
{
    ASSERT_NE(PlayLogicInterface::playerInstance(), nullptr);
    EXPECT_EQ(PlayLogicInterface::playerInstance(), PlayLogicInterface::playerInstance());
}
