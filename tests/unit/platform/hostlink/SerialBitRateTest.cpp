#include "platform/hostlink/SerialBitRate.h"

#include <asm/termbits.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <fcntl.h>
#include <memory>

#include "platform/hostlink/SerialLayer.h"
#include "support/LinkLogCapture.h"
#include "support/Terminal.h"

namespace
{

using Layer = HostLinkPhysicalLayer;

/// A device that rounds bit rates to multiples of its own, or does not know of free ones at all.
class RoundingCalls : public DeviceCalls
{
public:
    int open(const std::string& path, int flags) override { return m_system->open(path, flags); }
    void close(int descriptor) override { m_system->close(descriptor); }
    int ioctl(int descriptor, unsigned long request, std::uintptr_t argument) override
    {
        if (!knowsFreeRates && (request == TCGETS2 || request == TCSETS2)) {
            errno = ENOTTY;
            return -1;
        }
        const int result = m_system->ioctl(descriptor, request, argument);
        if (request == TCGETS2) {
            auto& rate = reinterpret_cast<termios2*>(argument)->c_ospeed;
            rate -= rate % unit;
        }
        return result;
    }

    unsigned unit = 1; ///< bit/s
    bool knowsFreeRates = true;

private:
    const std::shared_ptr<DeviceCalls> m_system = DeviceCalls::system();
};

class SerialBitRateTest : public ::testing::Test
{
protected:
    bool opensWith(int bitRate) const
    {
        Layer::Properties properties;
        properties.setString(Layer::Device, m_terminal.path());
        properties.setInt(Layer::BitRate, bitRate);
        SerialLayer layer(properties, m_calls);
        layer.open(HostLinkClock::now());
        return layer.lineNumber() != 0;
    }

    int bitRate() const
    {
        DeviceNode device(DeviceCalls::system());
        EXPECT_TRUE(device.open(m_terminal.path(), O_RDWR | O_NOCTTY | O_NONBLOCK));
        return SerialBitRate::get(device);
    }

    const Terminal m_terminal;
    const std::shared_ptr<RoundingCalls> m_calls = std::make_shared<RoundingCalls>();
};

} // namespace

TEST_F(SerialBitRateTest, EveryStandardRateIsSetAndAnyOther)
{
    for (const int rate : {50,      75,      110,     134,    150,     200,     300,     600,     1200,
                           1800,    2400,    4800,    9600,   19200,   38400,   57600,   115200,  230400,
                           460800,  500000,  576000,  921600, 1000000, 1152000, 1500000, 2000000, 2500000,
                           3000000, 3500000, 4000000, 31250,  250000,  123456,  12000000}) {
        EXPECT_TRUE(opensWith(rate)) << rate;
        EXPECT_EQ(bitRate(), rate);
    }
}

TEST_F(SerialBitRateTest, ARateThatIsNearlyMetServes)
{
    m_calls->unit = 1000; // 115 kbit/s are 0.2 % off
    EXPECT_TRUE(opensWith(115'200));
    EXPECT_TRUE(opensWith(123'456));
}

TEST_F(SerialBitRateTest, ARateThatTheDeviceDoesNotDoIsSaid)
{
    const LinkLogCapture log;
    m_calls->unit = 100'000;
    EXPECT_FALSE(opensWith(115'200));
    EXPECT_EQ(log.count("the device does not do 115200 bit/s, but 100000"), 1u);
    EXPECT_FALSE(opensWith(250'000));
    EXPECT_EQ(log.count("the device does not do 250000 bit/s, but 200000"), 1u);
}

TEST_F(SerialBitRateTest, ADeviceWithoutFreeRatesDoesTheStandardOnes)
{
    const LinkLogCapture log;
    m_calls->knowsFreeRates = false;
    EXPECT_TRUE(opensWith(460'800));
    EXPECT_EQ(log.lines().size(), 0u);
    EXPECT_FALSE(opensWith(31'250));
    EXPECT_EQ(log.count("cannot set 31250 bit/s: Inappropriate ioctl for device"), 1u);
}
