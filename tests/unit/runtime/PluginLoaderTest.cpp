#include "runtime/PluginLoader.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include "unit/runtime/Plugins.h"

namespace
{
std::string loadError(const QString& file)
{
    PluginLoader loader;
    QString error;
    EXPECT_FALSE(loader.load(file, &error));
    return error.toStdString();
}

std::string createError(const QString& plugin)
{
    PluginLoader loader;
    QString error;
    EXPECT_TRUE(loader.load(pluginFile(plugin), &error)) << error.toStdString();
    EXPECT_EQ(loader.createWorker({}, &error), nullptr);
    return error.toStdString();
}
} // namespace

TEST(PluginLoader, HandsTheConfigurationToTheWorker)
{
    PluginLoader loader;
    QString error;
    ASSERT_TRUE(loader.load(pluginFile("GoodPlugin"), &error)) << error.toStdString();
    const auto worker = loader.createWorker({{"key", 5}}, &error);
    ASSERT_NE(worker, nullptr) << error.toStdString();
    EXPECT_EQ(worker->config()["key"].toInt(), 5);
}

TEST(PluginLoader, FindsAFileInTheCurrentDirectory)
{
    const QString before = QDir::currentPath();
    ASSERT_TRUE(QDir::setCurrent(PLUGIN_DIRECTORY));
    PluginLoader loader;
    QString error;
    EXPECT_TRUE(loader.load("GoodPlugin.so", &error)) << error.toStdString();
    QDir::setCurrent(before);
}

TEST(PluginLoader, SaysThatThereIsNoFile)
{
    EXPECT_EQ(loadError("/nowhere/worker.so"), "no plug-in at /nowhere/worker.so");
    EXPECT_EQ(loadError("/tmp"), "no plug-in at /tmp");
}

TEST(PluginLoader, SaysWhyAFileCannotBeLoaded)
{
    const QTemporaryDir directory;
    QFile file(directory.filePath("text.so"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("no library");
    file.close();
    EXPECT_EQ(loadError(file.fileName()).find("cannot load the plug-in: " + file.fileName().toStdString()),
              0U);
}

TEST(PluginLoader, SaysThatALibraryIsNoWorkerPlugin)
{
    EXPECT_EQ(loadError(pluginFile("NoEntryPlugin")),
              pluginFile("NoEntryPlugin").toStdString() + " is no worker plug-in: it has no worker_create");
}

TEST(PluginLoader, SaysWhyAWorkerCouldNotBeConstructed)
{
    EXPECT_EQ(createError("ThrowingPlugin"), pluginFile("ThrowingPlugin").toStdString()
                                                 + ": the worker could not be constructed: out of order");
    EXPECT_EQ(createError("NothingPlugin"),
              pluginFile("NothingPlugin").toStdString() + ": worker_create gave no worker");
}
