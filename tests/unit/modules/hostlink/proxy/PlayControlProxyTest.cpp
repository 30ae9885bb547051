#include "modules/hostlink/proxy/PlayControlProxy.h"

#include <map>

#include "platform/sdk/VornPlayLogicData.h"
#include "support/ProxyFixture.h"

namespace
{
/// Code and what it asks the player for, where the player must offer it.
struct Command {
    int code;
    VornPlayLogicControls& (VornPlayLogicControls::*offer)(const bool&);
    const char* node;
    const char* request;
};

const Command kCommands[] = {
    {0, &VornPlayLogicControls::setPause, "pause", "{}"},
    {2, &VornPlayLogicControls::setNext_, "next", "{}"},
    {3, &VornPlayLogicControls::setPrevious, "previous", R"({"restart":false})"},
    {4, &VornPlayLogicControls::setLike, "like", "{}"},
    {5, &VornPlayLogicControls::setDislike, "dislike", "{}"},
};

class PlayControlProxyTest : public ProxyFixture
{
protected:
    PlayControlProxyTest()
    {
        for (const char* name : {"pause", "stop", "next", "previous", "like", "dislike", "play"}) {
            const CMPath path(QString("/player/instance/%1").arg(name));
            CMActivateNode::create(
                &m_nodes, path, &m_nodes,
                [this, name](const CMSetDataRequest& request) {
                    m_asked.push_back(std::string(name) + ' '
                                      + VornHash(request.data().toHash()).toJsonString().toStdString());
                },
                Qt::DirectConnection);
        }
        CMActivateNode::create(
            &m_nodes, CMPath("/mark"), &m_nodes, [this](const CMSetDataRequest&) { m_marked = true; },
            Qt::DirectConnection);
    }

    void offer(const VornPlayLogicControls& controls, int state = 1)
    {
        VornPlayLogicData data;
        data.setState(VornPlayLogicState::Enum(state)).setControls(controls);
        m_data->setValue(data);
    }

    std::string command(int code)
    {
        HostLinkValueMessage request(MSG_SetState);
        request.addValueUint8(STA_PlayControl, std::uint8_t(code));
        return write(m_proxy, request);
    }

    /// What the player was asked for since the last call. Requests reach it in order: behind the last.
    Texts asked()
    {
        m_marked = false;
        CMRoot()->invoke(CMPath("/mark"), {}, CMVoidReply());
        EXPECT_TRUE(waitFor([this] { return m_marked; }));
        return std::exchange(m_asked, {});
    }

    static std::string answer(int byte)
    {
        return "MSG_SetStateResponse STA_PlayControl=u8:" + std::to_string(byte);
    }

    CMValueNode* m_data = createNode(VornPlayLogicDataPath(), VornValue());
    PlayControlProxy m_proxy{nullptr};

private:
    Texts m_asked;
    bool m_marked = false;
};
} // namespace

TEST_F(PlayControlProxyTest, OwnsItsStateAndCannotBeRead)
{
    EXPECT_EQ(m_proxy.states(), QList<State>{STA_PlayControl});
    EXPECT_EQ(read(m_proxy, {4}), "MSG_GetStateResponse STA_PlayControl=nil");
}

TEST_F(PlayControlProxyTest, EachCommandThatIsOfferedIsCarriedOut)
{
    for (const Command& row : kCommands) {
        VornPlayLogicControls controls;
        (controls.*row.offer)(true);
        offer(controls);
        m_log.clear();
        EXPECT_EQ(command(row.code), answer(1)) << row.code;
        EXPECT_EQ(asked(), Texts{std::string(row.node) + ' ' + row.request});
        EXPECT_EQ(m_log.debugs(), Texts{"playerControl: " + std::to_string(row.code)});
        EXPECT_TRUE(m_log.errors().empty());
    }
}

TEST_F(PlayControlProxyTest, ACommandThatIsNotOfferedIsRefusedInSilence)
{
    for (const Command& row : kCommands) {
        VornPlayLogicControls controls;
        for (const Command& other : kCommands) {
            (controls.*other.offer)(other.code != row.code);
        }
        offer(controls);
        EXPECT_EQ(command(row.code), answer(0)) << row.code;
        EXPECT_EQ(asked(), Texts{});
    }
    EXPECT_TRUE(m_log.errors().empty());
}

TEST_F(PlayControlProxyTest, StopNeedsNoOffer)
{
    for (const int state : {1, 2, 3, -1}) {
        offer({}, state);
        EXPECT_EQ(command(1), answer(1));
        EXPECT_EQ(asked(), Texts{R"(stop {"reason":0})"}) << state;
    }
}

TEST_F(PlayControlProxyTest, AcceptedMeansAskedNotDone)
{
    VornPlayLogicControls all;
    for (const Command& row : kCommands) {
        (all.*row.offer)(true);
    }
    offer(all);
    removeActivateNodes();
    for (const int code : {0, 1, 2, 3, 4, 5}) {
        EXPECT_EQ(command(code), answer(1)) << code << " without a player";
    }
    settle();
    for (const char* name : {"pause", "stop", "next", "previous", "like", "dislike"}) {
        createRefusal(CMPath(QString("/player/instance/%1").arg(name)));
    }
    for (const int code : {0, 1, 2, 3, 4, 5}) {
        EXPECT_EQ(command(code), answer(1)) << code << " of a player that refuses";
    }
}

TEST_F(PlayControlProxyTest, StoppingAnIdlePlayerIsDoneWithoutIt)
{
    offer({}, 0);
    EXPECT_EQ(command(1), answer(1));
    m_data->setValue(VornValue());
    EXPECT_EQ(command(1), answer(1));
    EXPECT_EQ(asked(), Texts{});
}

TEST_F(PlayControlProxyTest, AnUnknownCodeIsRefusedAndAnError)
{
    VornPlayLogicControls all;
    for (const Command& row : kCommands) {
        (all.*row.offer)(true);
    }
    offer(all);
    for (const int code : {6, 255}) {
        m_log.clear();
        EXPECT_EQ(command(code), answer(0));
        EXPECT_EQ(m_log.errors(),
                  Texts{"playerControl control: " + std::to_string(code) + " is not supported"});
    }
    EXPECT_EQ(asked(), Texts{});
}

TEST_F(PlayControlProxyTest, AValueThatCannotBeReadPauses)
{
    offer(VornPlayLogicControls().setPause(true).setNext_(true));
    HostLinkValueMessage request(MSG_SetState);
    request.addValueUint16(STA_PlayControl, 2);
    EXPECT_EQ(write(m_proxy, request), answer(1));
    EXPECT_EQ(asked(), Texts{"pause {}"});
}

TEST_F(PlayControlProxyTest, TheStateThatIsAskedIsNotExamined)
{
    offer(VornPlayLogicControls().setNext_(true));
    HostLinkValueMessage request(MSG_SetState);
    request.addValueUint8(STA_Mute, 2);
    EXPECT_EQ(write(m_proxy, request), "MSG_SetStateResponse STA_Mute=u8:1");
    EXPECT_EQ(asked(), Texts{"next {}"});
}

TEST_F(PlayControlProxyTest, DataThatIsNoneOffersNothing)
{
    for (const VornValue& value :
         {VornValue(), VornValue().setString("next"), VornValue(VornHash{{"controls", QVariantList{true}}}),
          VornValue(VornHash{{"controls", QVariantHash{{"next_", 1}}}})}) {
        m_data->setValue(value);
        EXPECT_EQ(command(2), answer(0));
    }
    EXPECT_EQ(asked(), Texts{});
}

TEST_F(PlayControlProxyTest, TellsNoChange)
{
    listenTo(m_proxy);
    offer(VornPlayLogicControls().setNext_(true));
    offer({}, 2);
    EXPECT_EQ(told(), States{});
}
