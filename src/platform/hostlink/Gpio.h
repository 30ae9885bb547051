#pragma once

#include <memory>
#include <string>

/// A line by which the host says, while it is low, that it has bytes ready.
class GpioInterrupt
{
public:
    virtual ~GpioInterrupt() = default;

    /// Readable from a falling edge until clear().
    virtual int descriptor() const = 0;
    virtual void clear() = 0;

    /// The level: true while it is low.
    virtual bool isActive() = 0;
};

/// A line that holds the host in reset while it is low.
class GpioReset
{
public:
    virtual ~GpioReset() = default;
    virtual void setActive(bool active) = 0;
};

/// Lines of /dev/gpiochip0. Tests put lines of their own in their place.
class Gpio
{
public:
    virtual ~Gpio() = default;

    /// The line of that number, from 0; or nullptr, with the reason in *problem, which is empty when there is
    /// no chip here at all.
    virtual std::unique_ptr<GpioInterrupt> interrupt(int line, std::string* problem) = 0;

    /// The same for an output, which is not active yet.
    virtual std::unique_ptr<GpioReset> reset(int line, std::string* problem) = 0;

    static std::shared_ptr<Gpio> system();
};
