#include "services/PlayerVolume.h"

#include <gtest/gtest.h>

#include <limits>

#include "platform/sdk/CMItem.h"
#include "platform/sdk/Paths.h"

namespace
{
using Limits = std::numeric_limits<qint32>;

/// Counts what is told of the volume.
class PlayerVolumeTest : public testing::Test
{
protected:
    PlayerVolumeTest()
    {
        QObject::connect(&m_item, &CMItem::changed, [this] { ++m_changes; });
        QObject::connect(CMRoot(), &CMRootWorker::volumeChangeEvent, &m_item,
                         [this](const CMPath& path, const QVariant& event) {
                             EXPECT_EQ(path, VornPlayerVolumePath());
                             const VornValue value = VornHash(event.toHash());
                             EXPECT_EQ(value.toJsonString(), R"({"volumeChangeEvent":{"type":2}})");
                             ++m_events;
                         });
    }

    int volume() const { return m_item.roles().value().i32(); }

    static CMError write(const VornValue& value)
    {
        const CMReply<QVariant> reply;
        CMRoot()->setValue(VornPlayerVolumePath(), value, reply);
        EXPECT_TRUE(reply.wait());
        return reply.error();
    }

    static CMError writeVolume(int volume) { return write(VornValue().setI32(volume)); }

    static CMReply<QVariant> invoke(const VornHash& data)
    {
        const CMReply<QVariant> reply;
        CMRoot()->invoke(VornPlayerVolumeStepPath(), data, reply);
        EXPECT_TRUE(reply.wait());
        return reply;
    }

    /// Steps; the answer and the volume must agree.
    int step(int steps)
    {
        const CMReply<QVariant> reply = invoke(VornValue().setI32(steps));
        EXPECT_FALSE(reply.error().isError());
        EXPECT_EQ(reply.value().toHash(), VornValue().setI32(volume()));
        return volume();
    }

    PlayerVolume m_player;
    CMItem m_item{nullptr, VornPlayerVolumePath()};
    int m_changes = 0;
    int m_events = 0;
};
} // namespace

TEST_F(PlayerVolumeTest, DeclaresItsLimits)
{
    EXPECT_EQ(volume(), 25);
    EXPECT_EQ(m_item.roles().edit().min().i32(), 0);
    EXPECT_EQ(m_item.roles().edit().max().i32(), 100);
}

TEST_F(PlayerVolumeTest, KeepsToItsLimits)
{
    for (const int outside : {-1, 101, Limits::min(), Limits::max()}) {
        EXPECT_EQ(writeVolume(outside).code(), CMError::Refused) << outside;
    }
    EXPECT_EQ(writeVolume(101).Message(), "/player/volume: takes 0 to 100, not 101");
    EXPECT_EQ(m_changes, 0);
    EXPECT_FALSE(writeVolume(0).isError());
    EXPECT_EQ(volume(), 0);
    EXPECT_FALSE(writeVolume(100).isError());
    EXPECT_EQ(volume(), 100);
}

TEST_F(PlayerVolumeTest, AStepIsToldByTheChange)
{
    EXPECT_EQ(step(1), 26);
    EXPECT_EQ(step(10), 36);
    EXPECT_EQ(step(-4), 32);
    EXPECT_EQ(m_changes, 3);
    EXPECT_EQ(m_events, 0);
}

TEST_F(PlayerVolumeTest, AStepStopsAtALimit)
{
    EXPECT_EQ(step(76), 100);
    EXPECT_EQ(step(Limits::min()), 0);
    EXPECT_EQ(step(Limits::max()), 100);
    EXPECT_EQ(step(-101), 0);
    EXPECT_EQ(m_changes, 4);
    EXPECT_EQ(m_events, 0);
}

TEST_F(PlayerVolumeTest, AStepThatChangesNothingIsToldByAnEvent)
{
    writeVolume(100);
    m_changes = 0;
    EXPECT_EQ(step(1), 100);
    EXPECT_EQ(m_events, 1);
    EXPECT_EQ(step(0), 100);
    EXPECT_EQ(m_events, 2);
    EXPECT_EQ(step(Limits::max()), 100);
    EXPECT_EQ(m_events, 3);
    writeVolume(0);
    EXPECT_EQ(step(-1), 0);
    EXPECT_EQ(m_events, 4);
    EXPECT_EQ(m_changes, 1) << "the write's";
}

TEST_F(PlayerVolumeTest, AStepIsA32BitNumber)
{
    for (const VornHash& data : {VornHash(), VornHash{{"i32_", "1"}}, VornHash{{"i64_", 1}},
                                 VornHash{{"i32_", 1.5}}, VornHash{{"i32_", 1}, {"more", 2}}}) {
        const CMError error = invoke(data).error();
        EXPECT_EQ(error.code(), CMError::Refused);
        EXPECT_EQ(error.Message(), R"(/player/volumeStep: takes {"i32_":N}, N steps up or -N down, not )"
                                       + data.toJsonString());
    }
    EXPECT_EQ(volume(), 25);
    EXPECT_EQ(m_events, 0);
}
