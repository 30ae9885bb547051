#include "modules/hostlink/proxy/PostprocessorItemProxy.h"

#include <cmath>
#include <limits>

#include "platform/sdk/VornPlayerEqualizer.h"
#include "support/ProxyFixture.h"

namespace
{
using Bands = VornList<VornPlayerEqualizer>;

struct Tone {
    State state;
    CMPath path;
};

const Tone kTones[] = {{STA_Balance, VornPlayerBalancePath()},
                       {STA_Bass, VornPlayerBassPath()},
                       {STA_Treble, VornPlayerTreblePath()}};
const Tone kSwitches[] = {{STA_PostprocessingOnOff, VornPlayerPostprocessingOnOffPath()},
                          {STA_EqualizerOnOff, VornPlayerEqualizerOnOffPath()}};

class PostprocessorItemProxyTest : public ProxyFixture
{
protected:
    PostprocessorItemProxyTest() { listenTo(m_proxy); }

    /// The node at a path, which is made when it is asked for first.
    CMValueNode* node(const CMPath& path)
    {
        CMValueNode*& found = m_byPath[path];
        return found != nullptr ? found : found = CMValueNode::create(&m_nodes, path);
    }

    void createAllNodes()
    {
        for (const Tone& row : kTones) {
            node(row.path);
        }
        node(VornPlayerLoudnessPath());
        for (const Tone& row : kSwitches) {
            node(row.path);
        }
        equalizer();
    }

    CMValueNode* equalizer() { return node(VornPlayerEqualizerConfigurationPath()); }
    void setBands(const Bands& bands) { equalizer()->setValue(VornValue().setEqBandList(bands)); }

    static VornPlayerEqualizer band(double frequency, double value, double min = -12, double max = 12,
                                    double step = 0.5)
    {
        VornPlayerEqualizer band;
        return band.setBand(frequency).setMin(min).setMax(max).setStep(step).setValue(value);
    }

    static Bands manyBands(int count)
    {
        Bands bands;
        for (int i = 0; i < count; ++i) {
            bands.append(band(100 + i, i));
        }
        return bands;
    }

    ByteArray bytes(State state)
    {
        HostLinkValueMessage reply(MSG_GetStateResponse);
        m_proxy.getValue(state, &reply);
        bool ok = false;
        ByteArray bytes = reply.getBin16(0, &ok);
        EXPECT_TRUE(ok);
        EXPECT_EQ(reply.getTag(0), state);
        EXPECT_EQ(reply.size(), 1);
        return bytes;
    }

    std::string writeGains(const ByteArray& gains)
    {
        HostLinkValueMessage request(MSG_SetState);
        request.addValueBin16(STA_EqualizerValues, gains);
        return write(m_proxy, request);
    }

    std::string writeInt8(State state, int number)
    {
        HostLinkValueMessage request(MSG_SetState);
        request.addValueInt8(state, std::int8_t(number));
        return write(m_proxy, request);
    }

    std::string writeUint8(State state, int number)
    {
        HostLinkValueMessage request(MSG_SetState);
        request.addValueUint8(state, std::uint8_t(number));
        return write(m_proxy, request);
    }

    static std::string answer(State state, int byte)
    {
        return "MSG_SetStateResponse " + HostLinkPrinter::printHostLinkState(state)
               + "=u8:" + std::to_string(byte);
    }

    static std::string shown(State state, const std::string& value)
    {
        return "MSG_GetStateResponse " + HostLinkPrinter::printHostLinkState(state) + "=" + value;
    }

    /// A write to each state that can be written.
    static HostLinkValueMessage writesToAll(const ByteArray& gains)
    {
        HostLinkValueMessage request(MSG_SetState);
        for (const Tone& row : kTones) {
            request.addValueInt8(row.state, 1);
        }
        request.addValueUint8(STA_Loudness, 1);
        for (const Tone& row : kSwitches) {
            request.addValueUint8(row.state, 1);
        }
        request.addValueBin16(STA_EqualizerValues, gains);
        return request;
    }

    PostprocessorItemProxy m_proxy{nullptr};

private:
    QHash<CMPath, CMValueNode*> m_byPath;
};
} // namespace

TEST_F(PostprocessorItemProxyTest, OwnsItsStatesInOrder)
{
    EXPECT_EQ(m_proxy.states(), (QList<State>{State(25), State(26), State(27), State(49), State(50),
                                              State(51), State(52), State(53)}));
}

TEST_F(PostprocessorItemProxyTest, BeforeThereAreNodesAllIsZeroAndEmpty)
{
    EXPECT_EQ(read(m_proxy, {25, 26, 27, 49, 50, 51}),
              "MSG_GetStateResponse STA_Balance=i8:0 STA_Bass=i8:0 STA_Treble=i8:0 STA_Loudness=i8:0 "
              "STA_PostprocessingOnOff=u8:0 STA_EqualizerOnOff=u8:0");
    EXPECT_EQ(bytes(STA_EqualizerConfiguration), ByteArray());
    EXPECT_EQ(bytes(STA_EqualizerValues), ByteArray());
}

TEST_F(PostprocessorItemProxyTest, TonesAreReadInTenthsCutTowardZero)
{
    const std::pair<double, int> values[] = {{1.5, 15},   {-0.25, -2},   {0.29, 2}, {-0.09, 0}, {0, 0},
                                             {12.7, 127}, {-12.8, -128}, {0.1, 1},  {-10, -100}};
    for (const Tone& tone : kTones) {
        for (const auto& [value, byte] : values) {
            node(tone.path)->setValue(VornValue().setDouble_(value));
            EXPECT_EQ(read(m_proxy, {tone.state}), shown(tone.state, "i8:" + std::to_string(byte))) << value;
        }
    }
}

TEST_F(PostprocessorItemProxyTest, WhatDoesNotFitAByteKeepsItsLowBits)
{
    const std::pair<double, int> values[] = {
        {12.8, -128}, {25.6, 0},
        {-12.9, 127}, {1e300, -1}, // held at the largest 32-bit number
        {-1e300, 0},  {std::numeric_limits<double>::infinity(), -1},
    };
    for (const auto& [value, byte] : values) {
        node(VornPlayerBassPath())->setValue(VornValue().setDouble_(value));
        EXPECT_EQ(read(m_proxy, {26}), shown(STA_Bass, "i8:" + std::to_string(byte))) << value;
    }
    node(VornPlayerTreblePath())->setValue(VornValue().setDouble_(std::nan("")));
    EXPECT_EQ(read(m_proxy, {27}), shown(STA_Treble, "i8:0"));
    node(VornPlayerLoudnessPath())->setValue(VornValue().setI32(200));
    EXPECT_EQ(read(m_proxy, {49}), shown(STA_Loudness, "i8:-56"));
}

TEST_F(PostprocessorItemProxyTest, NodesOfAnotherTypeReadAsZero)
{
    node(VornPlayerBassPath())->setValue(VornValue().setString("1.5"));
    node(VornPlayerLoudnessPath())->setValue(VornValue().setDouble_(1.5));
    node(VornPlayerEqualizerOnOffPath())->setValue(VornValue().setI32(1));
    equalizer()->setValue(VornValue().setI32(5));
    EXPECT_EQ(read(m_proxy, {26, 49, 51}),
              "MSG_GetStateResponse STA_Bass=i8:0 STA_Loudness=i8:0 STA_EqualizerOnOff=u8:0");
    EXPECT_EQ(bytes(STA_EqualizerValues), ByteArray());
    equalizer()->setValue(VornHash{{"eqBandList", QVariantList{QVariantHash{{"band", "low"}}}}});
    EXPECT_EQ(bytes(STA_EqualizerConfiguration), ByteArray(8, 0)) << "a band without anything";
}

TEST_F(PostprocessorItemProxyTest, AnyToneButZeroIsWrittenAsATenth)
{
    const std::pair<int, double> values[] = {{20, 0.1},  {-20, 0.1},  {1, 0.1}, {-1, 0.1},
                                             {127, 0.1}, {-128, 0.1}, {0, 0.0}};
    for (const Tone& tone : kTones) {
        CMValueNode* target = node(tone.path);
        for (const auto& [byte, value] : values) {
            target->setValue(VornValue().setDouble_(7));
            EXPECT_EQ(writeInt8(tone.state, byte), answer(tone.state, 1));
            settle();
            EXPECT_TRUE(target->value().sameAs(VornValue().setDouble_(value))) << byte;
        }
    }
}

TEST_F(PostprocessorItemProxyTest, LoudnessAndSwitchesTakeAnyByte)
{
    for (const int byte : {0, 1, 7, 128, 255}) {
        const bool isOn = byte != 0;
        EXPECT_EQ(writeUint8(STA_Loudness, byte), answer(STA_Loudness, 1));
        CMValueNode* loudness = node(VornPlayerLoudnessPath());
        settle();
        EXPECT_TRUE(loudness->value().sameAs(VornValue().setI32(isOn ? 1 : 0)));
        EXPECT_EQ(read(m_proxy, {49}), shown(STA_Loudness, isOn ? "i8:1" : "i8:0"));
        for (const Tone& row : kSwitches) {
            CMValueNode* target = node(row.path);
            EXPECT_EQ(writeUint8(row.state, byte), answer(row.state, 1));
            settle();
            EXPECT_TRUE(target->value().sameAs(VornValue().setBool(isOn)));
            EXPECT_EQ(read(m_proxy, {row.state}), shown(row.state, isOn ? "u8:1" : "u8:0"));
        }
    }
}

TEST_F(PostprocessorItemProxyTest, AcceptedMeansAskedNotTaken)
{
    const std::string allTaken =
        "MSG_SetStateResponse STA_Balance=u8:1 STA_Bass=u8:1 STA_Treble=u8:1 STA_Loudness=u8:1 "
        "STA_PostprocessingOnOff=u8:1 STA_EqualizerOnOff=u8:1 STA_EqualizerValues=u8:1";
    EXPECT_EQ(write(m_proxy, writesToAll({})), allTaken) << "without any node";
    settle();
    setBands(manyBands(1));
    createAllNodes();
    for (CMValueNode* node : m_nodes.findChildren<CMValueNode*>()) {
        node->setReadOnly(true);
    }
    told();
    EXPECT_EQ(write(m_proxy, writesToAll({0, 9})), allTaken);
    settle();
    EXPECT_EQ(told(), States{});
}

TEST_F(PostprocessorItemProxyTest, AValueOfAnotherEncodingIsRefusedAndWritesNothing)
{
    setBands(manyBands(1));
    createAllNodes();
    told();
    for (const State state : {STA_Balance, STA_Bass, STA_Treble}) {
        EXPECT_EQ(writeUint8(state, 1), answer(state, 0));
    }
    for (const State state : {STA_Loudness, STA_PostprocessingOnOff, STA_EqualizerOnOff}) {
        EXPECT_EQ(writeInt8(state, 1), answer(state, 0));
    }
    EXPECT_EQ(writeUint8(STA_EqualizerValues, 1), answer(STA_EqualizerValues, 0));
    settle();
    EXPECT_EQ(told(), States{});
    EXPECT_TRUE(m_log.errors().empty());
}

TEST_F(PostprocessorItemProxyTest, TheLayoutAndStatesOfOthersAreRefused)
{
    setBands(manyBands(1));
    HostLinkValueMessage request(MSG_SetState);
    request.addValueBin16(STA_EqualizerConfiguration, ByteArray(8, 0));
    request.addValueUint8(STA_Mute, 1);
    EXPECT_EQ(write(m_proxy, request), "MSG_SetStateResponse STA_EqualizerConfiguration=u8:0 STA_Mute=u8:0");
    EXPECT_TRUE(m_log.errors().empty());
}

TEST_F(PostprocessorItemProxyTest, TheLayoutIsFourNumbersABand)
{
    setBands({band(60, 1), band(16000.9, 0, -0.25, 6.05, 0.1)});
    EXPECT_EQ(bytes(STA_EqualizerConfiguration),
              (ByteArray{0, 60, 0xFF, 0x88, 0, 120, 0, 5, 0x3E, 0x80, 0xFF, 0xFE, 0, 60, 0, 1}));
    setBands({band(65535, 0, -3276.8, 3276.7, 6553.5), band(65536, 0, 1e300, -1e300, 0)});
    EXPECT_EQ(bytes(STA_EqualizerConfiguration),
              (ByteArray{0xFF, 0xFF, 0x80, 0, 0x7F, 0xFF, 0xFF, 0xFF, 0, 0, 0xFF, 0xFF, 0, 0, 0, 0}));
}

TEST_F(PostprocessorItemProxyTest, GainsAreOneNumberABand)
{
    setBands({band(60, -10), band(100, 0.1), band(200, -0.25), band(400, 12)});
    EXPECT_EQ(bytes(STA_EqualizerValues), (ByteArray{0xFF, 0x9C, 0, 1, 0xFF, 0xFE, 0, 120}));
}

TEST_F(PostprocessorItemProxyTest, LayoutAndGainsTravelForAnyNumberOfBands)
{
    for (const int count : {0, 1, 5, 31}) {
        Bands bands = manyBands(count);
        setBands(bands);
        EXPECT_EQ(bytes(STA_EqualizerConfiguration).size(), std::size_t(count) * 8);
        EXPECT_EQ(bytes(STA_EqualizerValues).size(), std::size_t(count) * 2);
        ByteArray gains;
        for (int i = 0; i < count; ++i) {
            const int gain = i % 2 == 0 ? 3 * i : -100 - i;
            gains.push_back(std::uint8_t((gain >> 8) & 0xFF));
            gains.push_back(std::uint8_t(gain & 0xFF));
            bands[i].setValue(gain / 10.0);
        }
        EXPECT_EQ(writeGains(gains), answer(STA_EqualizerValues, 1));
        settle();
        EXPECT_TRUE(equalizer()->value().sameAs(VornValue().setEqBandList(bands)))
            << equalizer()->value().toJsonString().toStdString();
        EXPECT_EQ(bytes(STA_EqualizerValues), gains);
    }
    EXPECT_TRUE(m_log.errors().empty());
}

TEST_F(PostprocessorItemProxyTest, GainsOfAnotherSizeAreRefusedAndWriteNothing)
{
    setBands(manyBands(5));
    told();
    const std::size_t sizes[] = {8, 12, 0, 9, 11};
    for (const std::size_t size : sizes) {
        m_log.clear();
        EXPECT_EQ(writeGains(ByteArray(size, 1)), answer(STA_EqualizerValues, 0));
        EXPECT_EQ(m_log.errors(), Texts{"Incorrect binary size: expected 10 bytes, received "
                                        + std::to_string(size) + " bytes!"});
    }
    settle();
    EXPECT_EQ(told(), States{});
    setBands({});
    EXPECT_EQ(writeGains({1, 2}), answer(STA_EqualizerValues, 0));
    EXPECT_EQ(m_log.errors().back(), "Incorrect binary size: expected 0 bytes, received 2 bytes!");
}

TEST_F(PostprocessorItemProxyTest, GainsAreSignedAndKeepAllElseOfABand)
{
    VornPlayerEqualizer named = band(60, 1);
    named.insert("name", "Low");
    setBands({named, band(100, 2), band(200, 3)});
    EXPECT_EQ(writeGains({0xFF, 0x9C, 0x7F, 0xFF, 0x80, 0x00}), answer(STA_EqualizerValues, 1));
    settle();
    const Bands bands = equalizer()->value().eqBandList();
    ASSERT_EQ(bands.size(), 3);
    EXPECT_EQ(bands[0].value(), -10.0);
    EXPECT_EQ(bands[0]["name"].toString(), "Low");
    EXPECT_EQ(bands[0].max(), 12.0);
    EXPECT_EQ(bands[1].value(), 3276.7);
    EXPECT_EQ(bands[2].value(), -3276.8);
}

TEST_F(PostprocessorItemProxyTest, EachNodeTellsItsOneState)
{
    const std::pair<CMPath, State> rows[] = {{VornPlayerBalancePath(), STA_Balance},
                                             {VornPlayerBassPath(), STA_Bass},
                                             {VornPlayerTreblePath(), STA_Treble},
                                             {VornPlayerLoudnessPath(), STA_Loudness},
                                             {VornPlayerPostprocessingOnOffPath(), STA_PostprocessingOnOff},
                                             {VornPlayerEqualizerOnOffPath(), STA_EqualizerOnOff},
                                             {VornPlayerEqualizerConfigurationPath(), STA_EqualizerValues}};
    for (const auto& [path, state] : rows) {
        told();
        m_log.clear();
        node(path)->setValue(VornValue().setString("anything"));
        EXPECT_EQ(told(), States{{state}}) << path.toString().toStdString();
        EXPECT_EQ(m_log.traces().size(), 2U) << "enter and leave";
    }
    EXPECT_EQ(m_log.traces().front(),
              "Enter void PostprocessorItemProxy::on_equalizer_changed(const VornValue&)");
}
