#pragma once

#include <QStringList>
#include <functional>
#include <vector>

#include "platform/sdk/CMNode.h"
#include "platform/sdk/CMReply.h"
#include "platform/sdk/CMWorker.h"
#include "platform/sdk/Paths.h"
#include "platform/sdk/VornPlayLogicData.h"
#include "platform/sdk/VornServices.h"
#include "vocabulary/Proxies.h"

/// The states of which nobody is told: three that a host only writes, and one that it has to ask for.
constexpr State kNeverTold[] = {STA_PlayControl, STA_RoonSignalPath, STA_BluetoothOutgoingCall,
                                STA_EqualizerConfiguration};

/// As many of the states that a module serves, those of one plain value first.
inline std::vector<State> someStates(std::size_t count)
{
    std::vector<State> states{STA_DiracActiveFilter};
    for (const bool plain : {true, false}) {
        for (const ProxyRow& row : kProxies) {
            if ((row.proxy == ProxyClass::ValueItemProxy) == plain && row.states.front() != states.front()) {
                states.insert(states.end(), row.states.begin(), row.states.end());
            }
        }
    }
    states.resize(std::min(count, states.size()));
    return states;
}

/// What changes in a module, but for the two nodes that the worker itself makes. In each turn all states
/// change, once each.
class ChangingNodes
{
public:
    explicit ChangingNodes(const std::vector<State>& states)
    {
        for (const State state : states) {
            add(*findProxy(state));
        }
    }

    /// Of the first turn, 1, and each that follows.
    void change(int turn)
    {
        for (const Change& change : m_changes) {
            change(turn);
        }
    }

private:
    using Change = std::function<void(int turn)>;
    using Value = std::function<VornValue(int turn)>;

    void add(const ProxyRow& row)
    {
        switch (row.proxy) {
        case ProxyClass::ValueItemProxy: addConverted(row); break;
        case ProxyClass::HostCommandProxy:
            addUnlessKnown(CMPath(*row.node), [path = CMPath(*row.node), convert = *row.convert](int turn) {
                CMRoot()->invoke(path, converted(convert, turn), CMVoidReply(new CMReplyData<QVariant>));
            });
            break;
        case ProxyClass::VolumeItemProxy: addNode(VornPlayerVolumePath(), number); break;
        case ProxyClass::PowerItemProxy: addNode(VornPowerManagerTargetPath(), powerTarget); break;
        case ProxyClass::PlaybackItemProxy: addNode(VornPlayLogicDataPath(), playing); break;
        case ProxyClass::NetworkItemProxy: addNode(VornNetworkInfoPath(), network); break;
        case ProxyClass::BluetoothItemProxy: addNode(VornBluetoothStatePath(), bluetooth); break;
        case ProxyClass::PostprocessorItemProxy: addPostprocessor(); break;
        case ProxyClass::PlayControlProxy:
        case ProxyClass::RoonSignalPathProxy: break;
        }
    }

    void addConverted(const ProxyRow& row)
    {
        const CMPath path(*row.node);
        const Value value = [convert = *row.convert](int turn) { return converted(convert, turn); };
        if (row.states.front() != STA_BtConnectionState && row.states.front() != STA_BtFirmwareVersion) {
            addNode(path, value);
            return;
        }
        addUnlessKnown(path, [path, value](int turn) {
            CMRoot()->setValue(path, value(turn), CMVoidReply(new CMReplyData<QVariant>));
        });
    }

    void addPostprocessor()
    {
        for (const CMPath& path : {VornPlayerBassPath(), VornPlayerTreblePath(), VornPlayerBalancePath()}) {
            addNode(path, [](int turn) { return VornValue().setDouble_(turn); });
        }
        addNode(VornPlayerLoudnessPath(), number);
        for (const CMPath& path : {VornPlayerPostprocessingOnOffPath(), VornPlayerEqualizerOnOffPath()}) {
            addNode(path, [](int turn) { return VornValue().setBool(turn % 2 != 0); });
        }
        addNode(VornPlayerEqualizerConfigurationPath(), [](int turn) {
            return VornValue().setEqBandList({VornPlayerEqualizer().setBand(1000).setValue(turn % 100)});
        });
    }

    void addNode(const CMPath& path, const Value& value)
    {
        if (isKnown(path)) {
            return;
        }
        CMValueNode* node = CMValueNode::create(&m_nodes, path);
        node->setValue(value(0));
        addUnlessKnown(path, [node, value](int turn) { node->setValue(value(turn)); });
    }

    void addUnlessKnown(const CMPath& path, const Change& change)
    {
        if (!isKnown(path)) {
            m_known.append(path.toString());
            m_changes.push_back(change);
        }
    }

    bool isKnown(const CMPath& path) const { return m_known.contains(path.toString()); }

    static VornValue converted(CMValueItemProxyConvert convert, int turn)
    {
        switch (convert) {
        case CMValueItemProxyConvert::Uint8VornBool: return VornValue().setBool(turn % 2 != 0);
        case CMValueItemProxyConvert::Int64VornI64: return VornValue().setI64(turn);
        case CMValueItemProxyConvert::Bin16VornString: return VornValue().setString(text(turn));
        case CMValueItemProxyConvert::Bin16VornValueJson: return VornHash{{"turn", turn}};
        case CMValueItemProxyConvert::Uint8InputState:
            return VornValue().setInputState(VornHostLinkdInputStateType::Enum(turn % 2));
        default: return number(turn);
        }
    }

    static VornValue number(int turn) { return VornValue().setI32(turn); }
    static QString text(int turn) { return turn % 2 != 0 ? "odd" : "even"; }

    static VornValue powerTarget(int turn)
    {
        const auto target = [turn](int odd, int even) {
            return VornPowerManagerTargets::Enum(turn % 2 != 0 ? odd : even);
        };
        return VornValue().setPowerTarget(
            VornPowerManagerTarget().setTarget(target(1, 2)).setNextTarget(target(2, 1)));
    }

    static VornValue network(int turn)
    {
        const auto state = turn % 2 != 0 ? VornNetworkState::Connected : VornNetworkState::Disconnected;
        VornNetworkInfo info;
        info.setState(state).setWired(VornNetworkWiredInterface().setState(state));
        return VornValue().setNetworkInfo(info);
    }

    static VornValue bluetooth(int turn)
    {
        const bool isOdd = turn % 2 != 0;
        return VornValue().setBluetoothState(
            VornBluetoothState().setConnected(isOdd).setDiscoverable(isOdd).setPairable(isOdd));
    }

    static VornValue playing(int turn)
    {
        const bool isOdd = turn % 2 != 0;
        VornResource resource;
        resource.setMimeType(text(turn)).setSampleFrequency(isOdd ? 44100 : 96000);
        VornMetaData metaData;
        metaData.setAlbum(text(turn)).setArtist(text(turn));
        metaData.setServiceID(isOdd ? VornService_Files_Id() : VornService_Tidal_Id());
        VornMediaData media;
        media.setResources({resource}).setActiveResource(resource).setMetaData(metaData);
        VornPlayLogicData data;
        data.setState(VornPlayLogicState::Enum(turn % 2));
        data.setStatus(VornPlayLogicStatus().setDuration(turn));
        data.setControls(VornPlayLogicControls().setPause(isOdd));
        data.setTrackRoles(VornRoles().setTitle(text(turn)).setIcon(text(turn)).setMediaData(media));
        return data;
    }

    CMNodes m_nodes;
    QStringList m_known; ///< paths of what changes
    std::vector<Change> m_changes;
};
