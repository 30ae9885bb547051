#include <unistd.h>

#include "platform/hostlink/Gpio.h"

namespace
{

void explain(std::string* problem)
{
    const bool hasChip = ::access("/dev/gpiochip0", F_OK) == 0;
    *problem = hasChip ? "this library was built without libgpiod" : "";
}

/// What there is without libgpiod.
class NoGpio : public Gpio
{
public:
    std::unique_ptr<GpioInterrupt> interrupt(int, std::string* problem) override
    {
        explain(problem);
        return nullptr;
    }

    std::unique_ptr<GpioReset> reset(int, std::string* problem) override
    {
        explain(problem);
        return nullptr;
    }
};

} // namespace

std::shared_ptr<Gpio> Gpio::system()
{
    return std::make_shared<NoGpio>();
}
