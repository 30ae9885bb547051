#include <dlfcn.h>

#include <array>
#include <cstdio>
#include <stdexcept>

#include "platform/sdk/CMWorker.h"
#include "support/LinkFixture.h"

namespace
{

using WorkerCreate = void* (*)(void*, const QVariantHash&);

/// What a library offers to others, as the system's own tool lists it.
std::vector<std::string> exportedSymbols(const std::string& library)
{
    std::vector<std::string> names;
    const std::string command =
        std::string(NM_COMMAND) + " -D --defined-only --format=just-symbols " + library;
    FILE* lines = popen(command.c_str(), "r");
    EXPECT_NE(lines, nullptr);
    std::array<char, 1024> line{};
    while (fgets(line.data(), line.size(), lines) != nullptr) {
        names.emplace_back(line.data());
        names.back().pop_back();
    }
    EXPECT_EQ(pclose(lines), 0);
    return names;
}

class PluginTest : public LinkFixture
{
protected:
    ~PluginTest() override { HostLinkTransportLayer::stopAll(); }

    /// Plug-ins stay loaded: what they registered points into them.
    static WorkerCreate entryOf(const char* library)
    {
        void* handle = dlopen(library, RTLD_NOW | RTLD_LOCAL);
        EXPECT_NE(handle, nullptr) << dlerror();
        return handle == nullptr ? nullptr : reinterpret_cast<WorkerCreate>(dlsym(handle, "worker_create"));
    }

    void create(const char* library)
    {
        const WorkerCreate workerCreate = entryOf(library);
        ASSERT_NE(workerCreate, nullptr);
        int ignored = 0;
        m_worker.reset(static_cast<CMNodesWorker*>(workerCreate(&ignored, m_config)));
        receiveAnnouncement();
    }

    const QVariantHash m_config{{"any", "key"}};
    std::unique_ptr<CMNodesWorker> m_worker;
};

TEST_F(PluginTest, ExportsItsEntryAlone)
{
    EXPECT_EQ(exportedSymbols(WORKER_PLUGIN), std::vector<std::string>{"worker_create"});
    EXPECT_EQ(exportedSymbols(LAB_WORKER_PLUGIN), std::vector<std::string>{"worker_create"});
}

TEST_F(PluginTest, ItsEntryMakesAWorkerThatServesTheHost)
{
    create(WORKER_PLUGIN);
    EXPECT_EQ(m_worker->config(), m_config);
    EXPECT_STREQ(m_worker->metaObject()->className(), "CMHostLinkWorker");
    EXPECT_EQ(ask(numbers(MSG_GetState, {STA_Mute, STA_SystemUp})),
              "MSG_GetStateResponse STA_Mute=u8:0 STA_SystemUp=nil");
}

TEST_F(PluginTest, AFailureOfTheConstructorReachesTheCallerAndLeavesNothingBehind)
{
    const WorkerCreate workerCreate = entryOf(WORKER_PLUGIN);
    ASSERT_NE(workerCreate, nullptr);
    const auto nodesBefore = CMNodes::list();
    HostLinkPhysicalLayer::registerType(
        "i2c", [](const HostLinkPhysicalLayer::Properties&) -> std::unique_ptr<HostLinkPhysicalLayer> {
            throw std::runtime_error("no link today");
        });
    EXPECT_THROW(workerCreate(nullptr, m_config), std::runtime_error);
    EXPECT_EQ(CMNodes::list(), nodesBefore);
}

TEST_F(PluginTest, TheLabWorkerServesTheSystemUpStateToo)
{
    create(LAB_WORKER_PLUGIN);
    EXPECT_EQ(ask(numbers(MSG_GetState, {STA_Mute, STA_SystemUp})),
              "MSG_GetStateResponse STA_Mute=u8:0 STA_SystemUp=u8:1");
}

} // namespace
