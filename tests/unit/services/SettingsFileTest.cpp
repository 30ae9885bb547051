#include "services/SettingsFile.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include "support/DeepValue.h"
#include "support/LogCapture.h"

namespace
{
using Values = SettingsFile::Values;

class SettingsFileTest : public testing::Test
{
protected:
    static QByteArray contentOf(const QString& path)
    {
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
        return file.readAll();
    }

    static void write(const QString& path, const QByteArray& content)
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly)) << path.toStdString();
        file.write(content);
    }

    Values load() const { return SettingsFile(m_path).load(); }

    void save(const Values& values) const
    {
        QString error;
        EXPECT_TRUE(SettingsFile(m_path).save(values, &error)) << error.toStdString();
    }

    /// Loads `content`, which is no settings file; what the log says of why.
    std::string flawOf(const QByteArray& content)
    {
        write(m_path, content);
        m_log.clear();
        EXPECT_TRUE(load().isEmpty()) << content.toStdString();
        EXPECT_FALSE(QFileInfo::exists(m_path)) << content.toStdString();
        const QString aside = m_path + ".bad";
        EXPECT_EQ(contentOf(aside), content);
        QFile::remove(aside);
        if (m_log.lines().size() != 1 || m_log.errors().size() != 1) {
            ADD_FAILURE() << "said " << m_log.lines().size() << " times: " << content.toStdString();
            return {};
        }
        const std::string said = m_log.errors().front();
        const std::string begin = m_path.toStdString() + " cannot be used (";
        const std::string end = "), kept as " + aside.toStdString() + "; settings have their first values";
        EXPECT_EQ(said.substr(0, begin.size()), begin);
        EXPECT_EQ(said.substr(said.size() - end.size()), end);
        return said.substr(begin.size(), said.size() - begin.size() - end.size());
    }

    QTemporaryDir m_directory;
    QString m_path = m_directory.filePath("settings.json");
    LogCapture m_log{log4cplus::TRACE_LOG_LEVEL, "Services.Settings"};
};

VornValue numberValue(int value)
{
    return VornValue().setI32(value);
}
} // namespace

TEST_F(SettingsFileTest, WithoutAFileThereAreNoValues)
{
    EXPECT_TRUE(load().isEmpty());
    EXPECT_TRUE(m_log.lines().empty());
    EXPECT_FALSE(QFileInfo::exists(m_path));
}

TEST_F(SettingsFileTest, HoldsTheValuesInTheirJsonForm)
{
    save({{CMPath("/b"), numberValue(5)}, {CMPath("/a"), VornValue().setString("Küche \"oben\"\n")}});
    EXPECT_EQ(contentOf(m_path).toStdString(),
              "{\"hostlinkSettings\":1,\"nodes\":"
              "{\"/a\":{\"string_\":\"Küche \\\"oben\\\"\\n\"},\"/b\":{\"i32_\":5}}}\n");
}

TEST_F(SettingsFileTest, GivesBackWhatWasSaved)
{
    const Values values{
        {CMPath("/bool"), VornValue().setBool(false)},
        {CMPath("/i64"), VornValue().setI64(-9223372036854775807 - 1)},
        {CMPath("/double"), VornValue().setDouble_(0.1)},
        {CMPath("/text"), VornValue().setString("")},
        {CMPath("/hash"), VornHash({{"list", QVariantList{1, "two"}}, {"none", QVariant()}})},
        {CMPath("/empty"), VornValue()},
    };
    save(values);
    const Values loaded = load();
    EXPECT_EQ(loaded.keys(), values.keys());
    for (const CMPath& path : values.keys()) {
        EXPECT_TRUE(loaded[path].sameAs(values[path])) << path.toString().toStdString();
    }
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(SettingsFileTest, GivesBackTheDeepestValue)
{
    const VornValue deepest = VornHash(VornJson::parseValue(deepJson(), nullptr).toHash());
    save({{CMPath("/deep"), deepest}});
    EXPECT_TRUE(load()[CMPath("/deep")].sameAs(deepest));
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(SettingsFileTest, AFileThatIsTooLongIsSetAside)
{
    QByteArray content(16777217, ' ');
    EXPECT_EQ(flawOf(content), "more than 16777216 bytes");
    content.chop(1);
    EXPECT_NE(flawOf(content), "more than 16777216 bytes");
}

TEST_F(SettingsFileTest, ASaveReplacesAllValues)
{
    save({{CMPath("/a"), numberValue(1)}, {CMPath("/b"), numberValue(2)}});
    save({{CMPath("/b"), numberValue(3)}});
    EXPECT_EQ(load().keys(), QList<CMPath>{CMPath("/b")});
    save({});
    EXPECT_TRUE(load().isEmpty());
    EXPECT_TRUE(QFileInfo::exists(m_path));
    EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(SettingsFileTest, AFileCutAnywhereIsKeptAside)
{
    save({{CMPath("/a"), numberValue(12)}, {CMPath("/b"), VornValue().setString("text")}});
    const QByteArray whole = contentOf(m_path);
    for (int size = 0; size < whole.size() - 1; ++size) { // the last byte is the line's end
        EXPECT_NE(flawOf(whole.left(size)), "") << size;
    }
}

TEST_F(SettingsFileTest, AFileOfAnotherKindIsKeptAside)
{
    EXPECT_EQ(flawOf("[]"), "no settings of version 1");
    EXPECT_EQ(flawOf("5"), "no settings of version 1");
    EXPECT_EQ(flawOf(R"({"VornPlayerMutePath": {"bool_": false}})"), "no settings of version 1");
    EXPECT_EQ(flawOf(R"({"hostlinkSettings": 2, "nodes": {}})"), "no settings of version 1");
    EXPECT_EQ(flawOf(R"({"hostlinkSettings": "1", "nodes": {}})"), "no settings of version 1");
    EXPECT_EQ(flawOf(R"({"hostlinkSettings": 1})"), "no nodes");
    EXPECT_EQ(flawOf(R"({"hostlinkSettings": 1, "nodes": []})"), "no nodes");
    EXPECT_EQ(flawOf(R"({"hostlinkSettings": 1, "nodes": {"/a": 5}})"), "/a is no node with a value");
    EXPECT_EQ(flawOf(R"({"hostlinkSettings": 1, "nodes": {"a": {}}})"), "a is no node with a value");
    EXPECT_EQ(flawOf(QByteArray(100, '\0')).rfind("line 1 column 1: ", 0), 0U);
    EXPECT_EQ(flawOf("{\"hostlinkSettings\": 1, \"nodes\": {\"/\xfc\": {}}}"), "not UTF-8");
}

TEST_F(SettingsFileTest, EachBadFileHasANameOfItsOwn)
{
    for (const char* content : {"first", "second", "third"}) {
        write(m_path, content);
        load();
    }
    EXPECT_EQ(contentOf(m_path + ".bad"), "first");
    EXPECT_EQ(contentOf(m_path + ".bad-2"), "second");
    EXPECT_EQ(contentOf(m_path + ".bad-3"), "third");
}

TEST_F(SettingsFileTest, WhatIsNoFileIsKeptAsideToo)
{
    QDir(m_directory.path()).mkpath("settings.json/inside");
    EXPECT_TRUE(load().isEmpty());
    EXPECT_EQ(m_log.errors().size(), 1U);
    EXPECT_TRUE(QFileInfo(m_path + ".bad/inside").isDir());
    save({{CMPath("/a"), numberValue(1)}});
    EXPECT_EQ(load().size(), 1);
}

TEST_F(SettingsFileTest, WhatCannotBeKeptAsideIsNeverReplaced)
{
    constexpr int kLongestName = 255;
    m_path = m_directory.filePath(QString(kLongestName - 4, 'n')); // no room for ".bad-2"
    write(m_path, "damaged");
    write(m_path + ".bad", "older");
    SettingsFile file(m_path);
    QString error;
    EXPECT_TRUE(file.load().isEmpty());
    ASSERT_EQ(m_log.errors().size(), 1U);
    EXPECT_NE(m_log.errors()[0].find("settings have their first values and are not saved"),
              std::string::npos);
    EXPECT_FALSE(file.save({{CMPath("/a"), numberValue(1)}}, &error));
    EXPECT_EQ(error, m_path + ": File name too long");
    EXPECT_EQ(contentOf(m_path), "damaged");

    QFile::remove(m_path + ".bad");
    EXPECT_TRUE(file.save({{CMPath("/a"), numberValue(1)}}, &error)) << error.toStdString();
    EXPECT_EQ(contentOf(m_path + ".bad"), "damaged");
    EXPECT_EQ(load().size(), 1);
}

TEST_F(SettingsFileTest, ASaveThatFailsSaysWhy)
{
    QString error;
    SettingsFile file(m_directory.filePath("none/settings.json"));
    EXPECT_FALSE(file.save({}, &error));
    EXPECT_EQ(error, m_directory.filePath("none/settings.json.new") + ": No such file or directory");
}
