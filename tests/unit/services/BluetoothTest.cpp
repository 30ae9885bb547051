#include "services/Bluetooth.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QEventLoop>

#include "platform/sdk/CMItem.h"
#include "platform/sdk/Paths.h"
#include "platform/sdk/VornBluetooth.h"

namespace
{
using namespace std::chrono_literals;

class BluetoothTest : public testing::Test
{
protected:
    explicit BluetoothTest(std::chrono::milliseconds defaultTimeout = 1ms) : m_bluetooth(defaultTimeout) {}

    static CMError invoke(const CMPath& path, const VornHash& data)
    {
        const CMReply<QVariant> reply;
        CMRoot()->invoke(path, data, reply);
        while (!reply.isFinished()) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        }
        return reply.error();
    }

    static VornHash by(const char* name, bool timed = false)
    {
        return VornBluetoothDiscoverableRequest().setName(name).setUseDefaultTimeout(timed);
    }
    static bool request(const VornHash& data)
    {
        return !invoke(VornBluetoothRequestDiscoverablePath(), data).isError();
    }
    static bool revoke(const VornHash& data)
    {
        return !invoke(VornBluetoothRevokeDiscoverablePath(), data).isError();
    }
    static bool dial(const VornHash& data) { return !invoke(VornBluetoothDialCallPath(), data).isError(); }

    static bool connectDevice(const VornValue& value)
    {
        const CMReply<QVariant> reply;
        CMRoot()->setValue(VornBluetoothStatePath(), value, reply);
        EXPECT_TRUE(reply.wait());
        return !reply.error().isError();
    }
    static VornValue connected(bool is = true)
    {
        return VornValue().setBluetoothState(VornBluetoothState().setConnected(is));
    }

    VornBluetoothState state() const { return m_item.value().bluetoothState(); }
    bool isDiscoverable() const
    {
        EXPECT_EQ(state().discoverable(), state().pairable());
        return state().discoverable();
    }

    Bluetooth m_bluetooth;
    CMValueItem m_item{nullptr, VornBluetoothStatePath()};
};

class PatientBluetoothTest : public BluetoothTest
{
protected:
    PatientBluetoothTest() : BluetoothTest(24h) {}
};
} // namespace

TEST_F(BluetoothTest, BeginsHiddenAndUnconnected)
{
    EXPECT_EQ(m_item.value().toJsonString(),
              R"({"bluetoothState":{"connected":false,"discoverable":false,"pairable":false}})");
}

TEST_F(BluetoothTest, IsDiscoverableUntilTheLastRequestIsRevoked)
{
    EXPECT_TRUE(request(by("display")));
    EXPECT_TRUE(request(by("remote")));
    EXPECT_TRUE(isDiscoverable());
    EXPECT_TRUE(revoke(by("display")));
    EXPECT_TRUE(isDiscoverable());
    EXPECT_TRUE(revoke(by("remote")));
    EXPECT_FALSE(isDiscoverable());
}

TEST_F(BluetoothTest, ARevokeWithoutARequestIsAnswered)
{
    EXPECT_TRUE(revoke(by("display")));
    EXPECT_FALSE(isDiscoverable());
}

TEST_F(BluetoothTest, ATimedRequestEndsByItself)
{
    EXPECT_TRUE(request(by("display", true)));
    while (isDiscoverable()) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
}

TEST_F(BluetoothTest, TheTimeoutEndsNoLastingRequest)
{
    EXPECT_TRUE(request(by("display")));
    EXPECT_TRUE(request(by("remote", true)));
    QTimer after; // of the same interval, started later
    bool isOver = false;
    QObject::connect(&after, &QTimer::timeout, [&isOver] { isOver = true; });
    after.start(2ms);
    while (!isOver) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    EXPECT_TRUE(isDiscoverable());
    EXPECT_TRUE(revoke(by("display")));
    EXPECT_FALSE(isDiscoverable()) << "the timed one is over";
}

TEST_F(PatientBluetoothTest, NamesAreBoundedInNumberAndLength)
{
    EXPECT_TRUE(request(by(std::string(256, 'x').c_str())));
    EXPECT_FALSE(request(by(std::string(257, 'x').c_str())));
    for (int i = 0; i < 63; ++i) {
        EXPECT_TRUE(request(by(std::to_string(i).c_str(), i % 2 == 0)));
    }
    EXPECT_FALSE(request(by("one more")));
    EXPECT_FALSE(request(by("one more", true)));
    EXPECT_TRUE(request(by("1"))) << "known already";
    EXPECT_TRUE(revoke(by("1")));
    EXPECT_TRUE(request(by("one more")));
}

TEST_F(BluetoothTest, ARequestWithoutANameIsRefused)
{
    EXPECT_FALSE(request({}));
    EXPECT_FALSE(request({{"name", 5}}));
    EXPECT_FALSE(revoke({}));
    EXPECT_FALSE(isDiscoverable());
}

TEST_F(BluetoothTest, DialsOnlyWhileADeviceIsConnected)
{
    const VornValue number = VornValue().setString("+495551234");
    EXPECT_FALSE(dial(number));
    EXPECT_TRUE(connectDevice(connected()));
    EXPECT_TRUE(dial(number));
    EXPECT_FALSE(dial(VornValue().setString("")));
    EXPECT_FALSE(dial(VornValue().setI32(5)));
    EXPECT_TRUE(connectDevice(connected(false)));
    EXPECT_FALSE(dial(number));
}

TEST_F(BluetoothTest, RequestsLeaveTheConnectionAsItIs)
{
    EXPECT_TRUE(connectDevice(connected()));
    EXPECT_TRUE(request(by("display")));
    EXPECT_TRUE(state().connected());
    EXPECT_TRUE(isDiscoverable());
}

TEST_F(BluetoothTest, WhatIsNoStateIsRefused)
{
    EXPECT_FALSE(connectDevice({}));
    EXPECT_FALSE(connectDevice(VornValue().setBool(true)));
    EXPECT_FALSE(connectDevice(VornHash{{"bluetoothState", true}}));
}
