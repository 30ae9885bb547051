#include "services/Network.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>

#include "platform/sdk/CMItem.h"
#include "platform/sdk/Paths.h"

namespace
{
using Interfaces = std::vector<MachineInterface>;
using namespace std::chrono_literals;

constexpr MachineInterface kWired{false, true, true};
constexpr MachineInterface kWiredUnplugged{false, false, false};
constexpr MachineInterface kWiredWithoutAddress{false, true, false};
constexpr MachineInterface kWireless{true, true, true};
constexpr MachineInterface kWirelessWithoutAddress{true, true, false};

std::string textOf(const Interfaces& interfaces)
{
    return VornValue().setNetworkInfo(networkInfoOf(interfaces)).toJsonString().toStdString();
}

/// {"networkInfo":...} with these states and the soft access point down.
std::string info(int state, int wired, bool cable, int wireless)
{
    return R"({"networkInfo":{"softAp":{"state":0},"state":)" + std::to_string(state)
           + R"(,"wired":{"cableConnected":)" + (cable ? "true" : "false") + R"(,"state":)"
           + std::to_string(wired) + R"(},"wireless":{"state":)" + std::to_string(wireless) + "}}}";
}

/// A machine whose interfaces the test plugs in, looked at in each turn of the event loop.
class NetworkTest : public testing::Test
{
protected:
    std::string value() const { return m_item.value().toJsonString().toStdString(); }

    void letItLook()
    {
        const int before = m_looks;
        while (m_looks < before + 2) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        }
    }

    static CMError write(const VornValue& value)
    {
        const CMReply<QVariant> reply;
        CMRoot()->setValue(VornNetworkInfoPath(), value, reply);
        EXPECT_TRUE(reply.wait());
        return reply.error();
    }

    static VornValue softAccessPoint()
    {
        return VornValue().setNetworkInfo(
            VornNetworkInfo().setSoftAp(VornNetworkSoftApInterface().setState(VornNetworkState::Connected)));
    }

    int m_looks = 0;
    Interfaces m_interfaces{kWired};
    Network m_network{[this] {
                          ++m_looks;
                          return m_interfaces;
                      },
                      1ms};
    CMValueItem m_item{nullptr, VornNetworkInfoPath()};
};
} // namespace

TEST(NetworkInfoOf, IsConnectedWhereAnInterfaceIs)
{
    EXPECT_EQ(textOf({}), info(0, 0, false, 0));
    EXPECT_EQ(textOf({kWired}), info(1, 1, true, 0));
    EXPECT_EQ(textOf({kWireless}), info(1, 0, false, 1));
    EXPECT_EQ(textOf({kWired, kWireless}), info(1, 1, true, 1));
    EXPECT_EQ(textOf({kWiredUnplugged, kWireless}), info(1, 0, false, 1));
}

TEST(NetworkInfoOf, ConnectsWhileThereIsNoAddress)
{
    EXPECT_EQ(textOf({kWiredWithoutAddress}), info(2, 2, true, 0));
    EXPECT_EQ(textOf({kWirelessWithoutAddress}), info(2, 0, false, 2));
    EXPECT_EQ(textOf({kWiredWithoutAddress, kWireless}), info(1, 2, true, 1));
}

TEST(NetworkInfoOf, TheBestOfAKindCounts)
{
    EXPECT_EQ(textOf({kWiredUnplugged, kWired, kWiredWithoutAddress}), info(1, 1, true, 0));
    EXPECT_EQ(textOf({kWiredUnplugged, kWiredWithoutAddress}), info(2, 2, true, 0));
    EXPECT_EQ(textOf({kWiredUnplugged, kWiredUnplugged}), info(0, 0, false, 0));
}

TEST_F(NetworkTest, ShowsTheMachinesInterfacesFromTheBeginning)
{
    EXPECT_EQ(value(), info(1, 1, true, 0));
}

TEST_F(NetworkTest, FollowsTheMachine)
{
    m_interfaces = {kWiredUnplugged};
    letItLook();
    EXPECT_EQ(value(), info(0, 0, false, 0));
    m_interfaces = {kWiredUnplugged, kWireless};
    letItLook();
    EXPECT_EQ(value(), info(1, 0, false, 1));
}

TEST_F(NetworkTest, LooksAndChangesNothingWhileTheMachineIsTheSame)
{
    int changes = 0;
    QObject::connect(&m_item, &CMValueItem::changed, [&changes] { ++changes; });
    letItLook();
    EXPECT_EQ(changes, 0);
}

TEST_F(NetworkTest, AValueWrittenStaysUntilAnEmptyOne)
{
    EXPECT_FALSE(write(softAccessPoint()).isError());
    m_interfaces = {kWireless};
    letItLook();
    EXPECT_EQ(value(), R"({"networkInfo":{"softAp":{"state":1}}})");

    EXPECT_FALSE(write({}).isError());
    letItLook();
    EXPECT_EQ(value(), info(1, 0, false, 1));
}

TEST_F(NetworkTest, WhatIsNoNetworkIsRefused)
{
    for (const VornValue& other : {VornValue().setI32(1), VornValue(VornHash{{"state", 1}}),
                                   VornValue(VornHash{{"networkInfo", 1}})}) {
        EXPECT_TRUE(write(other).isError()) << other.toJsonString().toStdString();
    }
    EXPECT_EQ(value(), info(1, 1, true, 0));
}
