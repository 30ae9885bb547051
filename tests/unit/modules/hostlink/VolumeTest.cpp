#include "modules/hostlink/proxy/VolumeItemProxy.h"
#include "support/WorkerFixture.h"

namespace
{

using Texts = std::vector<std::string>;

VornEdit limits(int min, int max)
{
    return VornEdit().setMin(VornValue().setI32_(min)).setMax(VornValue().setI32_(max));
}

/// A player's volume of 30, from 0 to 100.
class VolumeTest : public WorkerFixture
{
protected:
    VolumeTest()
    {
        m_volume->setRoles(VornRoles().setEdit(limits(0, 100)));
        m_volume->setValue(VornValue().setI32_(30));
    }

    static HostLinkValueMessage set(std::uint8_t volume)
    {
        HostLinkValueMessage request(MSG_SetState);
        request.addValueUint8(STA_Volume, volume);
        return request;
    }

    void subscribe()
    {
        EXPECT_EQ(ask(numbers(MSG_Subscribe, {STA_Volume})), "MSG_SubscribeResponse STA_Volume");
        EXPECT_EQ(receive(), "MSG_StateChanged STA_Volume=u8:30");
    }

    static void announce(int type)
    {
        VornPlayerVolumeChangeEvent event;
        event.setType(VornPlayerVolumeChangeEventType::Enum(type));
        const VornValue value = VornValue().setVolumeChangeEvent(event);
        emit CMRoot()->volumeChangeEvent(VornPlayerVolumePath(),
                                         QVariant(static_cast<const QVariantHash&>(value)));
    }

    int volume() const { return m_volume->value().i32_(); }

    CMValueNode* m_volume = CMValueNode::create(&m_nodes, VornPlayerVolumePath());
};

TEST_F(VolumeTest, TheHostReadsTheVolume)
{
    EXPECT_EQ(ask(numbers(MSG_GetState, {STA_Volume})), "MSG_GetStateResponse STA_Volume=u8:30");
}

TEST_F(VolumeTest, AVolumeAboveAByteIsReadAsItsLowByte)
{
    m_volume->setValue(VornValue().setI32_(300));
    EXPECT_EQ(ask(numbers(MSG_GetState, {STA_Volume})), "MSG_GetStateResponse STA_Volume=u8:44");
}

TEST_F(VolumeTest, TheHighestVolumeIsTakenAndOneMoreIsRefused)
{
    m_log.clear();
    EXPECT_EQ(ask(set(101)), "MSG_SetStateResponse STA_Volume=u8:0");
    EXPECT_TRUE(nothingSent());
    EXPECT_EQ(volume(), 30);
    EXPECT_EQ(ask(set(100)), "MSG_SetStateResponse STA_Volume=u8:1");
    EXPECT_TRUE(waitFor([&] { return volume() == 100; }));
    EXPECT_EQ(ask(set(255)), "MSG_SetStateResponse STA_Volume=u8:0");
    EXPECT_TRUE(nothingSent());
    EXPECT_EQ(volume(), 100);
    EXPECT_TRUE(m_log.errors().empty());
}

TEST_F(VolumeTest, TheLowestVolumeIsTakenAndOneLessIsRefused)
{
    m_volume->setRoles(VornRoles().setEdit(limits(20, 100)));
    EXPECT_EQ(ask(set(19)), "MSG_SetStateResponse STA_Volume=u8:0");
    EXPECT_EQ(ask(set(20)), "MSG_SetStateResponse STA_Volume=u8:1");
    EXPECT_TRUE(waitFor([&] { return volume() == 20; }));
}

TEST_F(VolumeTest, AcceptedMeansAskedNotTaken)
{
    m_volume->setReadOnly(true);
    EXPECT_EQ(ask(set(45)), "MSG_SetStateResponse STA_Volume=u8:1");
    EXPECT_TRUE(nothingSent());
    EXPECT_EQ(volume(), 30);
    delete m_volume;
    EXPECT_EQ(ask(set(0)), "MSG_SetStateResponse STA_Volume=u8:1") << "all that is within no limits";
    EXPECT_TRUE(nothingSent());
}

TEST_F(VolumeTest, LimitsHaveASign)
{
    m_volume->setRoles(VornRoles().setEdit(limits(-80, -1)));
    EXPECT_EQ(ask(set(0)), "MSG_SetStateResponse STA_Volume=u8:0");
    m_volume->setRoles(VornRoles().setEdit(limits(-80, 0)));
    EXPECT_EQ(ask(set(0)), "MSG_SetStateResponse STA_Volume=u8:1");
}

TEST_F(VolumeTest, WhatIsNoByteIsRefused)
{
    HostLinkValueMessage request(MSG_SetState);
    request.addValueInt32(STA_Volume, 50);
    request.addValueNil(STA_Volume);
    EXPECT_EQ(ask(request), "MSG_SetStateResponse STA_Volume=u8:0 STA_Volume=u8:0");
    EXPECT_EQ(volume(), 30);
}

TEST_F(VolumeTest, AWriteIsFollowedByTheChange)
{
    subscribe();
    EXPECT_EQ(ask(set(45)), "MSG_SetStateResponse STA_Volume=u8:1");
    EXPECT_EQ(receive(), "MSG_StateChanged STA_Volume=u8:45");
    EXPECT_TRUE(nothingSent());
}

TEST_F(VolumeTest, AnyChangeOfTheNodeIsAnEvent)
{
    subscribe();
    m_volume->setRoles(VornRoles().setEdit(limits(0, 90)));
    EXPECT_EQ(receive(), "MSG_StateChanged STA_Volume=u8:30");
    m_volume->setValue(VornValue().setI32_(31));
    EXPECT_EQ(receive(), "MSG_StateChanged STA_Volume=u8:31");
    EXPECT_TRUE(nothingSent());
}

TEST_F(VolumeTest, OnlyAVolumeChangeEventOfTypeTwoIsTold)
{
    subscribe();
    for (const int type : {0, 1, 3, -2, 258}) {
        announce(type);
    }
    EXPECT_TRUE(nothingSent());
    announce(2);
    EXPECT_EQ(receive(), "MSG_StateChanged STA_Volume=u8:30");
    EXPECT_TRUE(nothingSent());
}

TEST_F(VolumeTest, AnEventThatIsNoneIsIgnored)
{
    subscribe();
    emit CMRoot()->volumeChangeEvent(VornPlayerVolumePath(), QVariant());
    emit CMRoot()->volumeChangeEvent(VornPlayerVolumePath(), QVariant("2"));
    EXPECT_TRUE(nothingSent());
}

TEST_F(VolumeTest, TracesTheTypeOfEachEvent)
{
    m_log.clear();
    announce(2);
    announce(7);
    const std::string function =
        "void VolumeItemProxy::on_volumeChangeEvent_changed(const CMPath&, const QVariant&)";
    EXPECT_EQ(m_log.count(log4cplus::TRACE_LOG_LEVEL, "Enter " + function + ": Number2"), 1U);
    EXPECT_EQ(m_log.count(log4cplus::TRACE_LOG_LEVEL, "Enter " + function + ": 7"), 1U);
}

TEST_F(VolumeTest, ItsAnswersCarryTheVolumesIdWhateverIsAsked)
{
    VolumeItemProxy proxy(nullptr);
    HostLinkValueMessage reply(MSG_GetStateResponse);
    proxy.getValue(State(0x7001), &reply);
    proxy.setValue(State(0x7001), set(200), 0, &reply);
    EXPECT_EQ(HostLinkPrinter::printMessage(reply.serialize()),
              "MSG_GetStateResponse STA_Volume=u8:30 STA_Volume=u8:0");
    EXPECT_EQ(proxy.states(), QList<State>{STA_Volume});
}

TEST_F(WorkerFixture, WithoutAPlayerTheVolumeIsNothingAndCannotBeSet)
{
    EXPECT_EQ(ask(numbers(MSG_GetState, {STA_Volume})), "MSG_GetStateResponse STA_Volume=u8:0");
    HostLinkValueMessage request(MSG_SetState);
    request.addValueUint8(STA_Volume, 1);
    EXPECT_EQ(ask(request), "MSG_SetStateResponse STA_Volume=u8:0");
}

} // namespace
