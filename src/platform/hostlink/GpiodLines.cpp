#include <gpiod.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "platform/hostlink/Gpio.h"

namespace
{

constexpr const char* kChip = "/dev/gpiochip0";
constexpr const char* kConsumer = "hostlink";
constexpr int kHigh = 1;
constexpr int kLow = 0;

struct CloseChip {
    void operator()(gpiod_chip* chip) const { gpiod_chip_close(chip); } // gives its lines back too
};
using Chip = std::unique_ptr<gpiod_chip, CloseChip>;

class GpiodInterrupt : public GpioInterrupt
{
public:
    GpiodInterrupt(Chip chip, gpiod_line* line) : m_chip(std::move(chip)), m_line(line) {}

    int descriptor() const override { return gpiod_line_event_get_fd(m_line); }

    void clear() override
    {
        constexpr timespec kNoWait{};
        gpiod_line_event events[16];
        while (gpiod_line_event_wait(m_line, &kNoWait) > 0
               && gpiod_line_event_read_multiple(m_line, events, std::size(events)) > 0) {
        }
    }

    bool isActive() override { return gpiod_line_get_value(m_line) == kLow; }

private:
    const Chip m_chip;
    gpiod_line* const m_line; ///< belongs to the chip
};

class GpiodReset : public GpioReset
{
public:
    GpiodReset(Chip chip, gpiod_line* line) : m_chip(std::move(chip)), m_line(line) {}

    void setActive(bool active) override { gpiod_line_set_value(m_line, active ? kLow : kHigh); }

private:
    const Chip m_chip;
    gpiod_line* const m_line;
};

class GpiodGpio : public Gpio
{
public:
    std::unique_ptr<GpioInterrupt> interrupt(int line, std::string* problem) override
    {
        return take<GpiodInterrupt>(line, problem, [](gpiod_line* taken) {
            return gpiod_line_request_falling_edge_events(taken, kConsumer);
        });
    }

    std::unique_ptr<GpioReset> reset(int line, std::string* problem) override
    {
        return take<GpiodReset>(line, problem, [](gpiod_line* taken) {
            return gpiod_line_request_output(taken, kConsumer, kHigh);
        });
    }

private:
    template <typename Line, typename Request>
    static std::unique_ptr<Line> take(int offset, std::string* problem, Request request)
    {
        problem->clear();
        Chip chip(gpiod_chip_open(kChip));
        if (!chip && errno == ENOENT) {
            return nullptr;
        }
        gpiod_line* const line = chip ? gpiod_chip_get_line(chip.get(), unsigned(offset)) : nullptr;
        if (line == nullptr || request(line) != 0) {
            *problem = std::generic_category().message(errno);
            return nullptr;
        }
        return std::make_unique<Line>(std::move(chip), line);
    }
};

} // namespace

std::shared_ptr<Gpio> Gpio::system()
{
    return std::make_shared<GpiodGpio>();
}
