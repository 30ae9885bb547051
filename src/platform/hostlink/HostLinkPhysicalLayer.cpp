#include "platform/hostlink/HostLinkPhysicalLayer.h"

#include <mutex>
#include <utility>

#include "platform/hostlink/FaultLayer.h"
#include "platform/hostlink/HostLinkLog.h"
#include "platform/hostlink/I2cLayer.h"
#include "platform/hostlink/SerialLayer.h"
#include "platform/hostlink/TcpLayer.h"
#include "platform/hostlink/UnixLayer.h"

namespace
{

/// Stands in for a layer that cannot be made.
class MissingLayer : public HostLinkPhysicalLayer
{
public:
    explicit MissingLayer(std::string problem) : m_problem(std::move(problem)) {}

    void open(HostLinkTime) override
    {
        if (!std::exchange(m_said, true)) {
            HostLinkLog::write(HostLinkLog::Level::Error, m_problem + ": the link stays down");
        }
    }
    void close() override {}
    void service(HostLinkTime) override {}
    std::uint64_t lineNumber() const override { return 0; }
    std::size_t read(std::uint8_t*, std::size_t, HostLinkTime) override { return 0; }
    std::size_t write(const std::uint8_t*, std::size_t, HostLinkTime) override { return 0; }
    void waitOn(std::vector<pollfd>&, bool) const override {}

private:
    std::string m_problem;
    bool m_said = false;
};

template <typename Layer>
std::unique_ptr<HostLinkPhysicalLayer> make(const HostLinkPhysicalLayer::Properties& properties)
{
    return std::make_unique<Layer>(properties);
}

struct Registry {
    std::mutex mutex;
    std::map<std::string, HostLinkPhysicalLayer::Factory> factories{
        {"i2c", make<I2cLayer>},
        {"serial", make<SerialLayer>},
        {"tcp", make<TcpLayer>},
        {"unix", make<UnixLayer>},
    };
};

Registry& registry()
{
    static auto& instance = *new Registry; // never destroyed: transports may outlive static objects
    return instance;
}

HostLinkPhysicalLayer::Factory findFactory(const std::string& type)
{
    const std::lock_guard lock(registry().mutex);
    const auto found = registry().factories.find(type);
    return found == registry().factories.end() ? nullptr : found->second;
}

std::unique_ptr<HostLinkPhysicalLayer> withFaults(std::unique_ptr<HostLinkPhysicalLayer> layer,
                                                  const std::string& faults)
{
    std::string error;
    const std::optional<FaultSettings> settings = FaultSettings::parse(faults, &error);
    if (!settings) {
        return std::make_unique<MissingLayer>(error);
    }
    return std::make_unique<FaultLayer>(std::move(layer), *settings);
}

template <typename Value>
std::optional<Value> find(const std::map<int, Value>& values, int property)
{
    const auto found = values.find(property);
    return found == values.end() ? std::nullopt : std::optional<Value>(found->second);
}

} // namespace

void HostLinkPhysicalLayer::Properties::setString(int property, std::string value)
{
    m_strings[property] = std::move(value);
}

void HostLinkPhysicalLayer::Properties::setInt(int property, int value)
{
    m_integers[property] = value;
}

std::optional<std::string> HostLinkPhysicalLayer::Properties::string(int property) const
{
    return find(m_strings, property);
}

std::optional<int> HostLinkPhysicalLayer::Properties::integer(int property) const
{
    return find(m_integers, property);
}

std::unique_ptr<HostLinkPhysicalLayer> HostLinkPhysicalLayer::create(const std::string& type,
                                                                     const Properties& properties)
{
    const Factory factory = findFactory(type);
    std::unique_ptr<HostLinkPhysicalLayer> layer = factory ? factory(properties) : nullptr;
    if (!layer) {
        return std::make_unique<MissingLayer>("no physical layer of type \"" + type + "\" is known");
    }
    const std::optional<std::string> faults = properties.string(Faults);
    return faults ? withFaults(std::move(layer), *faults) : std::move(layer);
}

void HostLinkPhysicalLayer::registerType(const std::string& type, Factory factory)
{
    const std::lock_guard lock(registry().mutex);
    registry().factories[type] = std::move(factory);
}
