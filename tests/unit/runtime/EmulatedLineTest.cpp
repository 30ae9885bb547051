#include "runtime/EmulatedLine.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>

namespace
{
using Properties = HostLinkPhysicalLayer::Properties;

Properties listening(const QString& device)
{
    Properties properties;
    properties.setString(HostLinkPhysicalLayer::Device, device.toStdString());
    properties.setInt(HostLinkPhysicalLayer::Listen, 1);
    return properties;
}
} // namespace

TEST(EmulatedLine, ListensAtOnce)
{
    const QTemporaryDir directory;
    QString error;
    const auto line = openEmulatedLine("unix", listening(directory.filePath("link")), &error);
    ASSERT_NE(line, nullptr) << error.toStdString();
    EXPECT_TRUE(QFile::exists(directory.filePath("link")));
}

TEST(EmulatedLine, SaysThatALineIsInUse)
{
    const QTemporaryDir directory;
    QString error;
    const auto line = openEmulatedLine("unix", listening(directory.filePath("link")), &error);
    ASSERT_NE(line, nullptr) << error.toStdString();
    EXPECT_EQ(openEmulatedLine("unix", listening(directory.filePath("link")), &error), nullptr);
    EXPECT_NE(error.toStdString().find(directory.filePath("link").toStdString()), std::string::npos);
    EXPECT_NE(error.toStdString().find("somebody else listens there"), std::string::npos);
}

TEST(EmulatedLine, SaysWhyALineCannotBeOpened)
{
    QString error;
    EXPECT_EQ(openEmulatedLine("unix", listening("/nowhere/link"), &error), nullptr);
    EXPECT_NE(error.toStdString().find("/nowhere/link"), std::string::npos);
    EXPECT_EQ(openEmulatedLine("no such type", {}, &error), nullptr);
    EXPECT_NE(error.toStdString().find("no such type"), std::string::npos);
}
