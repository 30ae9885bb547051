#include "runtime/EmulatedLine.h"

#include <atomic>
#include <mutex>
#include <thread>

#include "platform/hostlink/HostLinkLog.h"
#include "runtime/Logging.h"

using namespace std::chrono_literals;

namespace
{
constexpr auto kLongestWait = 5s; ///< for the address of a host name, or another side that starts
constexpr auto kPause = 5ms;

/// What the link library complains of while this lives, in place of the log.
class SaidByLink
{
public:
    SaidByLink()
    {
        HostLinkLog::setSink([this](HostLinkLog::Level level, const std::string& text) {
            if (level >= HostLinkLog::Level::Warning) {
                const std::lock_guard lock(m_mutex);
                m_text = text;
            }
        });
    }
    ~SaidByLink() { routeLinkLog(); }

    std::string text() const
    {
        const std::lock_guard lock(m_mutex);
        return m_text;
    }

private:
    mutable std::mutex m_mutex;
    std::string m_text;
};

bool listens(const HostLinkPhysicalLayer& layer)
{
    std::vector<pollfd> descriptors;
    layer.waitOn(descriptors, false);
    return !descriptors.empty();
}
} // namespace

std::unique_ptr<HostLinkPhysicalLayer>
openEmulatedLine(const std::string& type, const HostLinkPhysicalLayer::Properties& properties, QString* error)
{
    const SaidByLink said;
    std::unique_ptr<HostLinkPhysicalLayer> layer = HostLinkPhysicalLayer::create(type, properties);
    const HostLinkTime giveUp = HostLinkClock::now() + kLongestWait;
    layer->open(HostLinkClock::now());
    while (!listens(*layer) && said.text().empty() && HostLinkClock::now() < giveUp) {
        std::this_thread::sleep_for(kPause);
        layer->service(HostLinkClock::now());
    }
    if (listens(*layer)) {
        return layer;
    }
    *error = said.text().empty() ? "the link's address is not found, or another program is about to take it"
                                 : QString::fromStdString(said.text());
    return nullptr;
}
