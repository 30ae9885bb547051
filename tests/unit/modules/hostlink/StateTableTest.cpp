#include <set>

#include "support/WorkerFixture.h"
#include "vocabulary/Proxies.h"

namespace
{

/// A row as it must be. The last two are empty where the class serves nodes in its own way.
struct Expected {
    std::vector<int> states;
    std::string proxy;
    std::string node; ///< the accessor of its path
    std::string conversion;
};

const std::vector<Expected> kExpected{
    {{1}, "ValueItemProxy", "VornSystemVersionPath", "Bin16VornString"},
    {{34}, "ValueItemProxy", "VornPlayerMicMutePath", "Uint8VornBool"},
    {{10}, "ValueItemProxy", "VornPlayLogicPlayTimePath", "Int64VornI64"},
    {{28}, "ValueItemProxy", "VornUIDisplayBrightnessPath", "Uint8VornI32"},
    {{9}, "VolumeItemProxy", "", ""},
    {{3, 54}, "PowerItemProxy", "", ""},
    {{4}, "PlayControlProxy", "", ""},
    {{11, 20, 12, 13, 15, 14, 16, 777, 21, 38}, "PlaybackItemProxy", "", ""},
    {{30, 31}, "NetworkItemProxy", "", ""},
    {{55}, "RoonSignalPathProxy", "", ""},
    {{35, 36, 40}, "BluetoothItemProxy", "", ""},
    {{39}, "ValueItemProxy", "VornBluetoothIncomingCallLineIdPath", "Bin16VornString"},
    {{25, 26, 27, 49, 50, 51, 52, 53}, "PostprocessorItemProxy", "", ""},
    {{7}, "ValueItemProxy", "VornPlayerMutePath", "Uint8VornBool"},
    {{772}, "ValueItemProxy", "VornKestalPrimeChromecastAppNamePath", "Bin16VornString"},
    {{786}, "ValueItemProxy", "VornKestalPrimeMqaStatePath", "Uint8VornI32"},
    {{769}, "ValueItemProxy", "VornKestalPrimeIpAddressPath", "Uint32VornI32"},
    {{801}, "ValueItemProxy", "VornKestalPrimeDiracClientStatusPath", "Uint8VornBool"},
    {{774}, "ValueItemProxy", "VornKestalPrimeDiracCalibrationStatusPath", "Uint8VornBool"},
    {{62215}, "ValueItemProxy", "VornDiracFilterSettingsPath", "Bin16VornString"},
    {{62216}, "ValueItemProxy", "VornTarkoDiracActiveFilterPath", "Int32VornI32"},
    {{62209}, "ValueItemProxy", "VornKestalPrimeFactroryResetRequiredPath", "Uint8VornI32"},
    {{62229}, "ValueItemProxy", "VornKestalPrimeCurrentOutputTypePath", "Uint8VornI32"},
    {{800}, "ValueItemProxy", "VornKestalPrimeHeadphonesStatusPath", "Uint8VornBool"},
    {{62225}, "ValueItemProxy", "VornKestalPrimeMaxAmpVolumePath", "Uint8VornI32"},
    {{62230}, "ValueItemProxy", "VornKestalPrimeVolumeModePath", "Uint8VornI32"},
    {{779}, "ValueItemProxy", "VornKestalPrimeSomUpgradeStatusPath", "Uint8VornI32"},
    {{62219}, "ValueItemProxy", "VornKestalPrimeHostUpgradeStatusPath", "Uint8VornI32"},
    {{62221}, "ValueItemProxy", "VornKestalPrimeHostUpgradeStatusPath", "Uint32VornI32"},
    {{787}, "ValueItemProxy", "VornKestalPrimeRegionPath", "Uint32VornI32"},
    {{770}, "ValueItemProxy", "VornKestalPrimeEthernetMacAddressPath", "Bin16VornString"},
    {{784}, "ValueItemProxy", "VornKestalPrimeWifiMacAddressPath", "Bin16VornString"},
    {{771}, "ValueItemProxy", "VornKestalPrimeHostNamePath", "Bin16VornString"},
    {{785}, "ValueItemProxy", "VornDeviceNamePath", "Bin16VornString"},
    {{788}, "ValueItemProxy", "VornKestalPrimeSetSerialNumberPath", "Bin16VornString"},
    {{789}, "ValueItemProxy", "VornKestalPrimeSetMacAddressPath", "Bin16VornString"},
    {{790}, "ValueItemProxy", "VornKestalPrimeHaloBrightnessPath", "Uint8VornI32"},
    {{791}, "ValueItemProxy", "VornKestalPrimeIrSystemCodePath", "Uint8VornI32"},
    {{792}, "ValueItemProxy", "VornKestalPrimeAudioBypassPath", "Uint8VornBool"},
    {{793}, "ValueItemProxy", "VornKestalPrimeInputAutoSwitchPath", "Uint8VornI32"},
    {{794}, "ValueItemProxy", "VornKestalPrimeArcVolumePath", "Uint32VornI32"},
    {{795}, "ValueItemProxy", "VornKestalPrimeDacFilterPath", "Uint8VornI32"},
    {{41006}, "ValueItemProxy", "VornKestalPrimeMCUEcoTimerPath", "Uint8VornBool"},
    {{41008}, "ValueItemProxy", "VornKestalPrimeMCUNetworkStandbyPath", "Uint8VornBool"},
    {{41009}, "ValueItemProxy", "VornKestalPrimeSubConfigPath", "Uint8VornI32"},
    {{41016}, "ValueItemProxy", "VornKestalPrimeMaxAmpVolumePath", "Uint8VornI32"},
    {{41010}, "ValueItemProxy", "VornKestalPrimePreAmpModePath", "Uint8VornBool"},
    {{41011}, "ValueItemProxy", "VornKestalPrimeBtHdmiAutoSwitchPath", "Uint8VornBool"},
    {{41012}, "ValueItemProxy", "VornKestalPrimeTvVolumeControlPath", "Uint8VornBool"},
    {{41013}, "ValueItemProxy", "VornKestalPrimeBluetoothReset", "Uint8VornBool"},
    {{41014}, "ValueItemProxy", "VornKestalPrimeInputNamePath", "Uint8VornI32"},
    {{41015}, "ValueItemProxy", "VornKestalPrimeInputNameShowPath", "Uint8VornBool"},
    {{40976}, "ValueItemProxy", "VornKestalPrimeBtPairedDevicePath", "Bin16VornValueJson"},
    {{40977}, "ValueItemProxy", "VornKestalPrimeBtDiscoveryStatePath", "Uint32VornI32"},
    {{40980}, "ValueItemProxy", "VornKestalPrimeBtPlaybackStatePath", "Uint32VornI32"},
    {{40981}, "ValueItemProxy", "VornKestalPrimeBtTrackMetaDataPath", "Bin16VornValueJson"},
    {{40983}, "HostCommandProxy", "VornHostLinkKestalPrimeBtCommandPath", "Uint8VornI32"},
    {{40984}, "ValueItemProxy", "VornKestalPrimeBtPlaybackAllowedPath", "Uint8VornI32"},
    {{40987}, "HostCommandProxy", "VornHostLinkKestalPrimeBtConnectionCommandPath", "Bin16VornValueJson"},
    {{40992}, "ValueItemProxy", "VornDeviceNamePath", "Bin16VornString"},
    {{40986}, "ValueItemProxy", "VornHostLinkKestalPrimeBtConnectionStatePath", "Uint8VornI32"},
    {{40985}, "ValueItemProxy", "VornHostLinkKestalPrimeBtFirmwareVersion", "Bin16VornString"},
    {{41017}, "ValueItemProxy", "VornKestalPrimeDiracStimuliGainDB0", "Int32VornI32"},
    {{41018}, "ValueItemProxy", "VornKestalPrimeDiracStimuliGainDB1", "Int32VornI32"},
    {{41019}, "ValueItemProxy", "VornKestalPrimeDiracStimuliGainDB2", "Int32VornI32"},
    {{41020}, "ValueItemProxy", "VornKestalPrimeDiracStimuliGainDB3", "Int32VornI32"},
    {{40993}, "ValueItemProxy", "VornHostLinkKestalPrimeInputStatePath", "Uint8InputState"},
    {{41021}, "ValueItemProxy", "VornKestalPrimeFilteringEnabled", "Uint8VornBool"},
    {{41022}, "ValueItemProxy", "VornKestalProcModeChannelLevel", "Uint32VornI32"},
    {{41023}, "ValueItemProxy", "VornKestalProcModeCrossOverFreq", "Uint8VornI32"},
    {{41024}, "ValueItemProxy", "VornKestalProcModeDelay", "Uint32VornI32"},
    {{41025}, "ValueItemProxy", "VornKestalProcModeSampleRate", "Uint8VornI32"},
    {{41026}, "ValueItemProxy", "VornKestalProcModeSpeakerEQ", "Uint32VornI32"},
    {{41027}, "ValueItemProxy", "VornKestalProcModeInputName", "Uint8VornI32"},
    {{41028}, "ValueItemProxy", "VornKestalProcModePmVolume", "Uint8VornI32"},
    {{41029}, "ValueItemProxy", "VornKestalProcModePmSelect", "Uint8VornI32"},
    {{41030}, "ValueItemProxy", "VornKestalProcModeSubMode", "Uint8VornI32"},
};

std::vector<int> numbersOf(const QList<State>& states)
{
    return {states.begin(), states.end()};
}

class StateTableTest : public WorkerFixture
{
protected:
    /// In the order in which they were made.
    QList<ValueProxy*> proxies() const
    {
        return m_worker->findChildren<ValueProxy*>(QString(), Qt::FindDirectChildrenOnly);
    }
};

TEST_F(StateTableTest, EachRowOfTheTableIsAsItMustBe)
{
    ASSERT_EQ(kProxies.size(), kExpected.size());
    for (std::size_t i = 0; i < kExpected.size(); ++i) {
        const Expected& expected = kExpected[i];
        const ProxyRow& row = kProxies[i];
        SCOPED_TRACE("row " + std::to_string(i + 1));
        EXPECT_EQ(std::vector<int>(row.states.begin(), row.states.end()), expected.states);
        EXPECT_EQ(proxyClassName(row.proxy), expected.proxy);
        if (!expected.node.empty()) {
            ASSERT_TRUE(row.node && row.convert);
            EXPECT_EQ(nodeRow(*row.node).accessor, expected.node);
            EXPECT_EQ(conversionRow(*row.convert).name, expected.conversion);
        }
    }
}

TEST_F(StateTableTest, TheWorkerMakesTheProxiesInTheOrderOfTheTable)
{
    const QList<ValueProxy*> made = proxies();
    ASSERT_EQ(std::size_t(made.size()), kExpected.size());
    for (std::size_t i = 0; i < kExpected.size(); ++i) {
        SCOPED_TRACE("row " + std::to_string(i + 1));
        EXPECT_EQ(made[int(i)]->metaObject()->className(), kExpected[i].proxy);
        EXPECT_EQ(numbersOf(made[int(i)]->states()), kExpected[i].states);
    }
}

TEST_F(StateTableTest, EachOf97StatesReachesItsOwnProxy)
{
    std::set<int> seen;
    const QList<ValueProxy*> made = proxies();
    for (std::size_t i = 0; i < kExpected.size(); ++i) {
        for (const int state : kExpected[i].states) {
            EXPECT_TRUE(seen.insert(state).second) << state;
            EXPECT_EQ(m_worker->m_proxies.value(State(state)), made[int(i)]) << state;
        }
    }
    EXPECT_EQ(seen.size(), 97U);
    EXPECT_EQ(m_worker->m_proxies.size(), 97);
}

} // namespace
