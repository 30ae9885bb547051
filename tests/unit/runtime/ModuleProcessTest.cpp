#include "runtime/ModuleProcess.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <functional>

#include "platform/sdk/CMNode.h"
#include "platform/sdk/Paths.h"
#include "unit/runtime/Plugins.h"

namespace
{
class ModuleProcessTest : public testing::Test
{
protected:
    ModuleProcessTest()
    {
        m_settings.lineType = "unix";
        m_settings.lineProperties.setString(HostLinkPhysicalLayer::Device, link().toStdString());
        m_settings.lineProperties.setInt(HostLinkPhysicalLayer::Listen, 1);
        m_settings.apiSocket = m_directory.filePath("api");
        m_settings.stateDirectory = m_directory.filePath("some/state");
        m_settings.plugin = pluginFile("GoodPlugin");
    }

    void writeProfile(const QByteArray& text)
    {
        m_settings.profileFile = m_directory.filePath("profile.json");
        QFile file(m_settings.profileFile);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(text);
    }

    QString link() const { return m_directory.filePath("link"); }

    /// Starts a module, does something to it and stops it.
    void run(const std::function<void()>& use)
    {
        ModuleProcess module;
        ASSERT_EQ(module.start(m_settings, &m_error), ModuleProcess::Start::Ready) << m_error.toStdString();
        use();
    }

    static void set(const CMPath& path, const VornValue& value)
    {
        const CMReply<QVariant> reply;
        CMRoot()->setValue(path, value, reply);
        reply.wait();
        EXPECT_FALSE(reply.error().isError()) << reply.error().Message().toStdString();
    }

    static QVariantHash valueAt(const CMPath& path) { return CMRoot()->getValue(path).toHash(); }
    static QVariantHash foundByWorker() { return valueAt(CMPath("/test/found")); }

    QTemporaryDir m_directory;
    ModuleProcess::Settings m_settings;
    QString m_error;
};
} // namespace

TEST_F(ModuleProcessTest, TheWorkerFindsWhatItReadsAndTheRestComesAfterIt)
{
    ModuleProcess module;
    ASSERT_EQ(module.start(m_settings, &m_error), ModuleProcess::Start::Ready) << m_error.toStdString();
    const QStringList found = foundByWorker()["nodes"].toStringList();
    EXPECT_TRUE(found.contains(VornDiracSlotsSettingsPath().toString()));
    EXPECT_TRUE(found.contains(VornDiracActiveFilterPath().toString()));
    EXPECT_TRUE(found.contains(VornHostLinkTcpTunnelingConfPath().toString()));
    EXPECT_FALSE(found.contains(VornPlayerMutePath().toString()));
    EXPECT_TRUE(CMNodes::list().contains(VornPlayerMutePath().toString()));
    EXPECT_TRUE(CMNodes::list().contains(VornSystemManagerFactoryResetPath().toString()));
}

TEST_F(ModuleProcessTest, TheWorkersOwnNodesGoBeforeTheProfiles)
{
    ModuleProcess module;
    ASSERT_EQ(module.start(m_settings, &m_error), ModuleProcess::Start::Ready) << m_error.toStdString();
    EXPECT_EQ(valueAt(VornHostLinkKestalPrimeBtFirmwareVersion())["string_"].toString(), "of the worker");
}

TEST_F(ModuleProcessTest, TheWorkersLineIsTheOneGiven)
{
    ModuleProcess module;
    ASSERT_EQ(module.start(m_settings, &m_error), ModuleProcess::Start::Ready) << m_error.toStdString();
    EXPECT_TRUE(QFile::exists(link()));
}

TEST_F(ModuleProcessTest, EverythingGoesWithIt)
{
    {
        ModuleProcess module;
        ASSERT_EQ(module.start(m_settings, &m_error), ModuleProcess::Start::Ready) << m_error.toStdString();
    }
    EXPECT_TRUE(CMNodes::list().isEmpty());
    EXPECT_FALSE(QFile::exists(link()));
    EXPECT_FALSE(QFile::exists(m_settings.apiSocket));
    ModuleProcess again;
    EXPECT_EQ(again.start(m_settings, &m_error), ModuleProcess::Start::Ready) << m_error.toStdString();
}

TEST_F(ModuleProcessTest, TunnelSettingsGoBeforeTheProfiles)
{
    writeProfile(R"({"VornHostLinkTcpTunnelingConfPath": {"port": 1, "maxOpenConnections": 2}})");
    m_settings.tunnelPort = 5000;
    ModuleProcess module;
    ASSERT_EQ(module.start(m_settings, &m_error), ModuleProcess::Start::Ready) << m_error.toStdString();
    EXPECT_EQ(foundByWorker()["tunnel"].toHash()["port"].toInt(), 5000);
    EXPECT_EQ(foundByWorker()["tunnel"].toHash()["maxOpenConnections"].toInt(), 2);
}

TEST_F(ModuleProcessTest, AProfileReplacesTheStandardOne)
{
    writeProfile(R"({"/only/node": {"i32_": 5}})");
    ModuleProcess module;
    ASSERT_EQ(module.start(m_settings, &m_error), ModuleProcess::Start::Ready) << m_error.toStdString();
    EXPECT_EQ(valueAt(CMPath("/only/node"))["i32_"].toInt(), 5);
    EXPECT_FALSE(CMNodes::list().contains(VornPlayerMutePath().toString()));
}

TEST_F(ModuleProcessTest, ThePowerManagerAndTheVolumeAreThere)
{
    run([] {
        EXPECT_TRUE(valueAt(VornPowerManagerTargetPath()).contains("powerTarget"));
        EXPECT_TRUE(valueAt(VornPlayerVolumePath()).contains("i32_"));
        EXPECT_TRUE(CMNodes::list().contains(VornPowerManagerTargetRequestPath().toString()));
        EXPECT_TRUE(CMNodes::list().contains(VornPlayerVolumeStepPath().toString()));
    });
}

TEST_F(ModuleProcessTest, SettingsOutlastIt)
{
    run([] {
        set(VornPlayerVolumePath(), VornValue().setI32(30));
        set(VornPlayerMutePath(), VornValue().setBool(true));
        set(VornKestalPrimeRegionPath(), VornValue().setI32(0));
        set(VornKestalPrimeIpAddressPath(), VornValue().setI32(7));
    });
    run([] {
        EXPECT_EQ(valueAt(VornPlayerVolumePath())["i32_"].toInt(), 30);
        EXPECT_TRUE(valueAt(VornPlayerMutePath())["bool_"].toBool());
        EXPECT_EQ(valueAt(VornKestalPrimeRegionPath())["i32_"].toInt(), 0);
        EXPECT_NE(valueAt(VornKestalPrimeIpAddressPath())["i32_"].toInt(), 7) << "that is no setting";
    });
}

TEST_F(ModuleProcessTest, TheWorkerFindsTheKeptDiracSlots)
{
    const VornValue kept = VornHash({{"slotsList", QVariantHash{{"activeSlot", 2}}}});
    run([&] { set(VornDiracSlotsSettingsPath(), kept); });
    run([&] { EXPECT_TRUE(kept.sameAs(foundByWorker()["diracSlots"].toHash())); });
}

TEST_F(ModuleProcessTest, AnotherStateDirectoryHasOtherSettings)
{
    run([] { set(VornPlayerVolumePath(), VornValue().setI32(30)); });
    m_settings.stateDirectory = m_directory.filePath("other");
    run([] { EXPECT_EQ(valueAt(VornPlayerVolumePath())["i32_"].toInt(), 25); });
}

TEST_F(ModuleProcessTest, AProfileSaysWhatASettingIs)
{
    writeProfile(R"({"/a": {"i32_": 1}, "/b": {"i32_": 1}, "settings": ["/a"]})");
    run([] {
        set(CMPath("/a"), VornValue().setI32(2));
        set(CMPath("/b"), VornValue().setI32(2));
    });
    run([] {
        EXPECT_EQ(valueAt(CMPath("/a"))["i32_"].toInt(), 2);
        EXPECT_EQ(valueAt(CMPath("/b"))["i32_"].toInt(), 1);
    });
}

TEST_F(ModuleProcessTest, AFactoryResetOutlastsIt)
{
    run([] { set(VornPlayerVolumePath(), VornValue().setI32(30)); });
    run([] {
        set(VornPlayerMutePath(), VornValue().setBool(true));
        const CMReply<QVariant> reply;
        CMRoot()->invoke(VornSystemManagerFactoryResetPath(), VornHash(), reply);
        EXPECT_TRUE(reply.wait());
        EXPECT_EQ(valueAt(VornPlayerVolumePath())["i32_"].toInt(), 25);
    });
    run([] {
        EXPECT_EQ(valueAt(VornPlayerVolumePath())["i32_"].toInt(), 25);
        EXPECT_FALSE(valueAt(VornPlayerMutePath())["bool_"].toBool());
    });
}

TEST_F(ModuleProcessTest, AnOccupiedStateDirectoryIsNoStartAndLeavesNothing)
{
    StateDirectory occupied;
    ASSERT_TRUE(occupied.open(m_settings.stateDirectory, &m_error));
    {
        ModuleProcess module;
        EXPECT_EQ(module.start(m_settings, &m_error), ModuleProcess::Start::Failed);
        EXPECT_EQ(m_error,
                  "the state directory " + m_settings.stateDirectory + " is in use by another module");
    }
    EXPECT_TRUE(CMNodes::list().isEmpty());
    EXPECT_FALSE(QFile::exists(link()));
    EXPECT_FALSE(QFile::exists(m_settings.apiSocket));
}

TEST_F(ModuleProcessTest, MakesAStateDirectoryForItsOwnerOnly)
{
    ModuleProcess module;
    ASSERT_EQ(module.start(m_settings, &m_error), ModuleProcess::Start::Ready) << m_error.toStdString();
    const QFileInfo directory(m_settings.stateDirectory);
    EXPECT_TRUE(directory.isDir());
    EXPECT_EQ(directory.permissions()
                  & (QFile::ReadGroup | QFile::ReadOther | QFile::ExeGroup | QFile::ExeOther),
              QFile::Permissions());
}

TEST_F(ModuleProcessTest, ABadProfileIsNoStart)
{
    writeProfile("{");
    ModuleProcess module;
    EXPECT_EQ(module.start(m_settings, &m_error), ModuleProcess::Start::BadFile);
    EXPECT_TRUE(m_error.startsWith(m_settings.profileFile + ": line 1 ")) << m_error.toStdString();
}

TEST_F(ModuleProcessTest, ATunnelAtAPortThatThereIsNotIsNoStart)
{
    writeProfile(R"({"VornHostLinkTcpTunnelingConfPath": {"port": 65536}})");
    ModuleProcess module;
    EXPECT_EQ(module.start(m_settings, &m_error), ModuleProcess::Start::BadFile);
    EXPECT_EQ(m_error.toStdString(), "VornHostLinkTcpTunnelingConfPath: 65536 is no port");
}

TEST_F(ModuleProcessTest, AMissingPluginIsNoStartAndLeavesNothing)
{
    m_settings.plugin = "/nowhere.so";
    {
        ModuleProcess module;
        EXPECT_EQ(module.start(m_settings, &m_error), ModuleProcess::Start::Failed);
        EXPECT_EQ(m_error, "no plug-in at /nowhere.so");
    }
    EXPECT_FALSE(QFile::exists(link()));
    EXPECT_FALSE(QFile::exists(m_settings.apiSocket));
}

TEST_F(ModuleProcessTest, AStateDirectoryThatCannotBeMadeIsNoStart)
{
    m_settings.stateDirectory = "/dev/null/state";
    ModuleProcess module;
    EXPECT_EQ(module.start(m_settings, &m_error), ModuleProcess::Start::Failed);
    EXPECT_EQ(m_error, "cannot create the state directory /dev/null/state");
}
