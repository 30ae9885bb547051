#include <fcntl.h>
#include <linux/input.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <utility>

#include "platform/hostlink/FileDescriptor.h"
#include "platform/hostlink/HexText.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "support/ModuleFixture.h"

namespace
{
constexpr int kPatienceMs = 10'000;
constexpr int kRelease = 0;
constexpr int kPress = 1;
constexpr int kRepeat = 2;

/// What the kernel's list of input devices says of "hostlink"; empty without it.
std::string listedDevice()
{
    std::ifstream list("/proc/bus/input/devices");
    std::string device;
    for (std::string line; std::getline(list, line);) {
        device += line + "\n";
        if (!line.empty()) {
            continue;
        }
        if (device.find("N: Name=\"hostlink\"\n") != std::string::npos) {
            return device;
        }
        device.clear();
    }
    return {};
}

/// Where its events are read; empty when there is no such place.
std::string eventNodeOf(const std::string& device)
{
    std::istringstream words(device.substr(device.find("H: Handlers=") + std::strlen("H: Handlers=")));
    for (std::string word; words >> word;) {
        if (word.rfind("event", 0) == 0) {
            return "/dev/input/" + word;
        }
    }
    return {};
}

struct Event {
    int type;
    int code;
    int value;
};

bool operator==(const Event& left, const Event& right)
{
    return left.type == right.type && left.code == right.code && left.value == right.value;
}

std::ostream& operator<<(std::ostream& stream, const Event& event)
{
    return stream << event.type << ' ' << event.code << ' ' << event.value;
}

constexpr Event kSynchronisation{EV_SYN, SYN_REPORT, 0};
} // namespace

/// Another process, this one, reads the keys that a host sends to the module.
class KeyInput : public ModuleFixture
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(listedDevice(), "") << "of another module";
        ModuleFixture::SetUp();
        const std::string device = listedDevice();
        ASSERT_NE(device, "");
        m_device = FileDescriptor(::open(eventNodeOf(device).c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
        ASSERT_TRUE(m_device) << device << std::strerror(errno);
        m_host = std::make_unique<Program>(Program::Arguments{"host", "attend"}, Program::Input::Typed);
    }

    void send(const std::vector<std::pair<int, int>>& keys)
    {
        HostLinkValueMessage message(MSG_InputEvent);
        for (const auto& [action, key] : keys) {
            message.addValueUint16(static_cast<std::uint16_t>(action), static_cast<std::uint16_t>(key));
        }
        m_host->type("send " + hexText(message.serialize()) + "\n");
    }

    /// The next events, up to and with a synchronisation.
    std::vector<Event> nextFrame()
    {
        std::vector<Event> frame;
        do {
            pollfd readable{m_device.get(), POLLIN, 0};
            input_event event{};
            if (::poll(&readable, 1, kPatienceMs) != 1
                || ::read(m_device.get(), &event, sizeof event) != ssize_t(sizeof event)) {
                ADD_FAILURE() << "no event";
                return frame;
            }
            frame.push_back({event.type, event.code, event.value});
        } while (frame.back().type != EV_SYN);
        return frame;
    }

    FileDescriptor m_device;
    std::unique_ptr<Program> m_host;
};

TEST_F(KeyInput, DeviceHasAllKeysAndNothingElse)
{
    std::array<std::uint8_t, KEY_CNT / 8> keys{};
    ASSERT_GE(::ioctl(m_device.get(), EVIOCGBIT(EV_KEY, keys.size()), keys.data()), 0);
    std::array<std::uint8_t, KEY_CNT / 8> all;
    all.fill(0xff);
    all[KEY_RESERVED / 8] &=
        std::uint8_t(~(1U << KEY_RESERVED % 8)); // which the kernel takes out of each device
    EXPECT_EQ(keys, all);
    std::uint32_t types = 0;
    ASSERT_GE(::ioctl(m_device.get(), EVIOCGBIT(0, sizeof types), &types), 0);
    EXPECT_EQ(types, 1U << EV_SYN | 1U << EV_KEY);
}

TEST_F(KeyInput, EachMessageIsAFrame)
{
    send({{kPress, KEY_VOLUMEUP}, {kRelease, KEY_VOLUMEUP}});
    EXPECT_EQ(nextFrame(),
              (std::vector<Event>{{EV_KEY, KEY_VOLUMEUP, 1}, {EV_KEY, KEY_VOLUMEUP, 0}, kSynchronisation}));
    send({{kPress, KEY_LEFTSHIFT}, {kPress, KEY_A}});
    EXPECT_EQ(nextFrame(),
              (std::vector<Event>{{EV_KEY, KEY_LEFTSHIFT, 1}, {EV_KEY, KEY_A, 1}, kSynchronisation}));
    send({{kRepeat, KEY_A}});
    EXPECT_EQ(nextFrame(), (std::vector<Event>{{EV_KEY, KEY_A, 0}, kSynchronisation}));
    send({{kPress, KEY_MAX}});
    EXPECT_EQ(nextFrame(), (std::vector<Event>{{EV_KEY, KEY_MAX, 1}, kSynchronisation}));
}

TEST_F(KeyInput, DeviceGoesWhenTheModuleIsTakenDown)
{
    Program::run({"node", "set", "VornPowerManagerTargetPath", R"({"powerTarget": {"target": 4}})"});
    pollfd gone{m_device.get(), POLLIN, 0};
    ASSERT_EQ(::poll(&gone, 1, kPatienceMs), 1);
    input_event event{};
    EXPECT_EQ(::read(m_device.get(), &event, sizeof event), -1);
    EXPECT_EQ(errno, ENODEV);
    EXPECT_EQ(listedDevice(), "");
    EXPECT_EQ(Program::run({"node", "get", "VornPlayerMutePath"}).status, 0) << "the module is there still";
}
