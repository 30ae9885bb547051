#include "services/NodeSettings.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <memory>

#include "platform/sdk/CMItem.h"
#include "platform/sdk/CMNode.h"
#include "platform/sdk/CMWorker.h"
#include "support/LogCapture.h"
#include "support/WaitFor.h"
#include "unit/services/SyncSpy.h"

namespace
{
using namespace std::chrono_literals;
using Texts = std::vector<std::string>;

const CMPath kVolume(QStringLiteral("/test/volume"));
const CMPath kName(QStringLiteral("/test/name"));
const CMPath kOther(QStringLiteral("/test/other"));

constexpr NodeSettings::Delays kAtOnce{0ms, 5ms};
constexpr NodeSettings::Delays kNever{24h, 24h};

VornValue number(int value)
{
    return VornValue().setI32(value);
}

/// Settings of a volume and a name; the node /test/other is none.
class NodeSettingsTest : public testing::Test
{
protected:
    ~NodeSettingsTest() override { end(); }

    /// The nodes with their first values, and the settings on them.
    void begin(NodeSettings::Delays delays = kNever)
    {
        m_nodes = std::make_unique<CMNodes>();
        m_volume = CMValueNode::create(m_nodes.get(), kVolume);
        m_volume->setValue(number(25));
        m_name = CMValueNode::create(m_nodes.get(), kName);
        m_name->setValue(VornValue().setString("Living Room"));
        CMValueNode::create(m_nodes.get(), kOther)->setValue(number(1));
        m_settings = std::make_unique<NodeSettings>(m_path, QVector<CMPath>{kVolume, kName}, delays);
        m_settings->adopt();
    }

    void end()
    {
        m_settings.reset();
        m_nodes.reset();
    }

    void restart(NodeSettings::Delays delays = kNever)
    {
        end();
        begin(delays);
    }

    int volume() const { return m_volume->value().i32(); }
    SettingsFile::Values saved() const { return SettingsFile(m_path).load(); }
    int savedVolume() const { return saved().value(kVolume).i32(); }

    void write(const QByteArray& content) const
    {
        QFile file(m_path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
    }

    QTemporaryDir m_directory;
    QString m_path = m_directory.filePath("settings.json");
    LogCapture m_log{log4cplus::TRACE_LOG_LEVEL, "Services.Settings"};
    std::unique_ptr<CMNodes> m_nodes;
    CMValueNode* m_volume = nullptr;
    CMValueNode* m_name = nullptr;
    std::unique_ptr<NodeSettings> m_settings;
    QString m_error;
};
} // namespace

TEST_F(NodeSettingsTest, WithoutChangesNothingIsWritten)
{
    begin(kAtOnce);
    EXPECT_EQ(volume(), 25);
    restart();
    end();
    EXPECT_FALSE(QFileInfo::exists(m_path));
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(NodeSettingsTest, AChangeIsThereAfterARestart)
{
    begin();
    m_volume->setValue(number(30));
    m_name->setValue(VornValue().setString("Küche"));
    restart();
    EXPECT_EQ(volume(), 30);
    EXPECT_EQ(m_name->value().string(), "Küche");
    restart();
    EXPECT_EQ(volume(), 30) << "though it was not changed again";
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(NodeSettingsTest, OnlySettingsAreKept)
{
    begin();
    const CMVoidReply reply;
    CMRoot()->setValue(kOther, number(2), reply);
    reply.wait();
    m_volume->setValue(number(30));
    end();
    EXPECT_EQ(saved().keys(), QList<CMPath>{kVolume});
}

TEST_F(NodeSettingsTest, AChangeIsSavedWhileTheModuleRuns)
{
    begin(kAtOnce);
    m_volume->setValue(number(30));
    EXPECT_FALSE(QFileInfo::exists(m_path)) << "never inside a change";
    EXPECT_TRUE(waitFor([&] { return savedVolume() == 30; }));
}

TEST_F(NodeSettingsTest, ChangesAreSavedTogether)
{
    int syncs = 0;
    const SyncSpy spy([&](const std::string&) {
        ++syncs;
        return 0;
    });
    begin(kAtOnce);
    for (int value = 26; value <= 90; ++value) {
        m_volume->setValue(number(value));
        m_name->setValue(VornValue().setString(QString::number(value)));
    }
    EXPECT_TRUE(waitFor([&] { return QFileInfo::exists(m_path); }));
    EXPECT_EQ(savedVolume(), 90);
    end();
    EXPECT_EQ(syncs, 2) << "one save, of the file and of its name";
}

TEST_F(NodeSettingsTest, OngoingChangesDoNotPutTheSaveOff)
{
    begin({20ms, 24h});
    QTimer changes;
    int value = 26;
    QObject::connect(&changes, &QTimer::timeout, [&] { m_volume->setValue(number(++value)); });
    changes.start(1ms);
    EXPECT_TRUE(waitFor([&] { return QFileInfo::exists(m_path); }));
}

TEST_F(NodeSettingsTest, AKeptValueTakesThePlaceOfTheFirstOneOnly)
{
    begin();
    m_volume->setValue(number(30));
    restart();
    m_volume->setValue(number(31));
    m_settings->adopt();
    EXPECT_EQ(volume(), 31);
    EXPECT_TRUE(m_settings->reset(&m_error));
    EXPECT_EQ(volume(), 25) << "a node is adopted once";
}

TEST_F(NodeSettingsTest, NodesMayComeLater)
{
    begin();
    m_volume->setValue(number(30));
    end();

    m_settings = std::make_unique<NodeSettings>(m_path, QVector<CMPath>{kVolume}, kNever);
    m_settings->adopt();
    m_nodes = std::make_unique<CMNodes>();
    m_volume = CMValueNode::create(m_nodes.get(), kVolume);
    m_volume->setValue(number(25));
    EXPECT_EQ(volume(), 25);
    m_settings->adopt();
    EXPECT_EQ(volume(), 30);
}

TEST_F(NodeSettingsTest, TheEndOfANodeIsNoChange)
{
    begin();
    m_volume->setValue(number(30));
    delete m_volume;
    end();
    EXPECT_EQ(savedVolume(), 30);
}

TEST_F(NodeSettingsTest, AnEmptyRecordIsAValueToo)
{
    const CMPath path(QStringLiteral("/test/record"));
    m_nodes = std::make_unique<CMNodes>();
    CMValueNode* const node = CMValueNode::create(m_nodes.get(), path);
    node->setValue(VornHash({{"slot", 1}}));
    m_settings = std::make_unique<NodeSettings>(m_path, QVector<CMPath>{path}, kNever);
    m_settings->adopt();
    node->setValue(VornValue());
    m_settings.reset();
    node->setValue(VornHash({{"slot", 1}}));
    m_settings = std::make_unique<NodeSettings>(m_path, QVector<CMPath>{path}, kNever);
    m_settings->adopt();
    EXPECT_TRUE(node->value().isEmpty());
}

TEST_F(NodeSettingsTest, WhatIsKeptOfOtherNodesStays)
{
    write(R"({"hostlinkSettings":1,"nodes":{"/of/another/profile":{"i32_":7}}})");
    begin();
    m_volume->setValue(number(30));
    end();
    EXPECT_EQ(saved().value(CMPath("/of/another/profile")).i32(), 7);
    EXPECT_EQ(savedVolume(), 30);
}

TEST_F(NodeSettingsTest, AKeptValueThatTheNodeRefusesLeavesTheFirstOne)
{
    write(
        R"({"hostlinkSettings":1,"nodes":{"/test/volume":{"string_":"loud"},"/test/name":{"string_":"Attic"}}})");
    begin();
    EXPECT_EQ(volume(), 25);
    EXPECT_EQ(m_name->value().string(), "Attic");
    EXPECT_EQ(m_log.warnings(), Texts{"setting not restored: /test/volume: takes i32, not string"});
    m_volume->setValue(number(26));
    restart();
    EXPECT_EQ(volume(), 26);
}

TEST_F(NodeSettingsTest, ABadFileMeansFirstValuesAndIsKept)
{
    write("{\"hostlinkSettings\":1,\"nod");
    begin();
    EXPECT_EQ(volume(), 25);
    EXPECT_EQ(m_log.errors().size(), 1U);
    m_volume->setValue(number(30));
    restart();
    EXPECT_EQ(volume(), 30);
    EXPECT_EQ(m_log.errors().size(), 1U) << "said once";
    EXPECT_TRUE(QFileInfo::exists(m_path + ".bad"));
}

TEST_F(NodeSettingsTest, ASaveThatFailsIsSaidOnceAndTriedUntilItWorks)
{
    m_path = m_directory.filePath("state/settings.json");
    int tries = 0;
    const SyncSpy spy([&](const std::string&) {
        ++tries;
        return tries <= 5 ? ENOSPC : 0;
    });
    QDir(m_directory.path()).mkdir("state");
    begin(kAtOnce);
    m_volume->setValue(number(30));
    EXPECT_TRUE(waitFor([&] { return tries > 5; }));
    EXPECT_EQ(m_log.errors(),
              Texts{"settings cannot be saved: " + m_path.toStdString() + ".new: No space left on device"});
    EXPECT_EQ(m_log.warnings(), Texts{"settings can be saved again"});
    EXPECT_EQ(volume(), 30);
    EXPECT_EQ(savedVolume(), 30);
}

TEST_F(NodeSettingsTest, AStateDirectoryThatIsGoneCostsNothingButTheSave)
{
    m_path = m_directory.filePath("state/settings.json");
    begin();
    m_volume->setValue(number(30));
    end();
    EXPECT_EQ(m_log.errors(),
              Texts{"settings cannot be saved: " + m_path.toStdString() + ".new: No such file or directory"});
}

TEST_F(NodeSettingsTest, AChangeAfterAFailedSaveIsNotLeftToTheNextTry)
{
    bool full = true;
    int tries = 0;
    const SyncSpy spy([&](const std::string&) {
        ++tries;
        return full ? ENOSPC : 0;
    });
    begin({0ms, 24h});
    m_volume->setValue(number(30));
    EXPECT_TRUE(waitFor([&] { return tries == 1; }));
    full = false;
    m_name->setValue(VornValue().setString("Attic"));
    EXPECT_TRUE(waitFor([&] { return saved().size() == 2; }));
}

TEST_F(NodeSettingsTest, AResetGivesFirstValuesNowAndAfterARestart)
{
    begin();
    m_volume->setValue(number(30));
    restart();
    m_name->setValue(VornValue().setString("Attic"));
    EXPECT_TRUE(m_settings->reset(&m_error)) << m_error.toStdString();
    EXPECT_EQ(volume(), 25);
    EXPECT_EQ(m_name->value().string(), "Living Room");
    EXPECT_TRUE(saved().isEmpty()) << "it does not wait for the next save";
    restart();
    EXPECT_EQ(volume(), 25);
    EXPECT_EQ(m_name->value().string(), "Living Room");
}

TEST_F(NodeSettingsTest, AResetForgetsWhatWasKeptOfOtherNodes)
{
    write(R"({"hostlinkSettings":1,"nodes":{"/of/another/profile":{"i32_":7}}})");
    begin();
    EXPECT_TRUE(m_settings->reset(&m_error));
    end();
    EXPECT_TRUE(saved().isEmpty());
}

TEST_F(NodeSettingsTest, AResetTouchesNoOtherNode)
{
    begin();
    const CMVoidReply reply;
    CMRoot()->setValue(kOther, number(2), reply);
    reply.wait();
    EXPECT_TRUE(m_settings->reset(&m_error));
    EXPECT_EQ(CMRoot()->getValue(kOther).toHash(), number(2));
}

TEST_F(NodeSettingsTest, AResetKeepsWhatIsWrittenDuringIt)
{
    begin();
    m_volume->setValue(number(30));
    m_name->setValue(VornValue().setString("Attic"));
    CMValueItem item(nullptr, kName); // this one, before the volume, is what the reset writes first
    QObject::connect(&item, &CMValueItem::changed, [](const VornValue& value) {
        if (value.string() == "Living Room") {
            CMRoot()->setValue(kName, VornValue().setString("Cellar"), CMVoidReply());
        }
    });
    EXPECT_TRUE(m_settings->reset(&m_error));
    EXPECT_EQ(m_name->value().string(), "Cellar");
    EXPECT_EQ(saved().keys(), QList<CMPath>{kName});
    restart();
    EXPECT_EQ(m_name->value().string(), "Cellar");
    EXPECT_EQ(volume(), 25);
}

TEST_F(NodeSettingsTest, AChangeAfterAResetIsKept)
{
    begin();
    EXPECT_TRUE(m_settings->reset(&m_error));
    m_volume->setValue(number(40));
    restart();
    EXPECT_EQ(volume(), 40);
}

TEST_F(NodeSettingsTest, AResetThatCannotBeSavedSaysSoAndIsTriedAgain)
{
    begin(kAtOnce);
    m_volume->setValue(number(30));
    EXPECT_TRUE(waitFor([&] { return QFileInfo::exists(m_path); }));
    {
        const SyncSpy spy([](const std::string&) { return ENOSPC; });
        EXPECT_FALSE(m_settings->reset(&m_error));
        EXPECT_EQ(m_error, m_path + ".new: No space left on device");
        EXPECT_EQ(volume(), 25);
        EXPECT_EQ(savedVolume(), 30);
    }
    EXPECT_TRUE(waitFor([&] { return saved().isEmpty(); }));
}
