#include "runtime/EmulatedLine.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>

#include "platform/hostlink/HostLinkLog.h"

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

/// Says something on its way, and listens when it is serviced.
class TalkativeLine : public HostLinkPhysicalLayer
{
public:
    void open(HostLinkTime) override { HostLinkLog::write(HostLinkLog::Level::Info, "begins to listen"); }
    void close() override {}
    void service(HostLinkTime) override { m_listens = true; }
    std::uint64_t lineNumber() const override { return 0; }
    std::size_t read(std::uint8_t*, std::size_t, HostLinkTime) override { return 0; }
    std::size_t write(const std::uint8_t*, std::size_t, HostLinkTime) override { return 0; }
    void waitOn(std::vector<pollfd>& descriptors, bool) const override
    {
        if (m_listens) {
            descriptors.push_back({-1, POLLIN, 0});
        }
    }

private:
    bool m_listens = false;
};
} // namespace

TEST(EmulatedLine, ListensAtOnce)
{
    const QTemporaryDir directory;
    QString error;
    const auto line = openEmulatedLine("unix", listening(directory.filePath("link")), &error);
    ASSERT_NE(line, nullptr) << error.toStdString();
    EXPECT_TRUE(QFile::exists(directory.filePath("link")));
}

TEST(EmulatedLine, IsNotGivenUpForWhatIsNoComplaint)
{
    HostLinkPhysicalLayer::registerType("talkative",
                                        [](const Properties&) { return std::make_unique<TalkativeLine>(); });
    QString error;
    EXPECT_NE(openEmulatedLine("talkative", {}, &error), nullptr) << error.toStdString();
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
