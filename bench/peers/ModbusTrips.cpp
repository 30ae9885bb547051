// Ten values as 24 registers of libmodbus, which have no types, over TCP or over RTU on a pseudo-terminal.
//
// usage: modbus_trips tcp|rtu [REQUESTS [CLIENT_CORE [SERVER_CORE]]]

#include <modbus.h>
#include <pty.h>
#include <termios.h>

#include "Trips.h"

namespace
{

constexpr int kRegisters = 6 + 2 + 2 + 4 + 10;
constexpr int kSlave = 1;
constexpr std::uint32_t kPatience = 5; ///< seconds: the machine may have much else to do

[[noreturn]] void fail()
{
    throw std::runtime_error(modbus_strerror(errno));
}

void serve(modbus_t* context)
{
    modbus_mapping_t* mapping = modbus_mapping_new(0, 0, kRegisters, 0);
    std::uint8_t query[MODBUS_TCP_MAX_ADU_LENGTH];
    for (;;) {
        const int size = modbus_receive(context, query);
        if (size < 0) {
            fail();
        }
        if (size > 0) {
            modbus_reply(context, query, size, mapping);
        }
    }
}

void measure(const TripArguments& arguments, const Server& server, modbus_t* context)
{
    std::uint16_t registers[kRegisters];
    reportTrips(arguments.requests, {server.pid()}, [&] {
        if (modbus_read_registers(context, 0, kRegisters, registers) != kRegisters) {
            fail();
        }
    });
}

void measureTcp(const TripArguments& arguments)
{
    modbus_t* const listening = modbus_new_tcp("127.0.0.1", 15020);
    int listener = modbus_tcp_listen(listening, 1);
    if (listener < 0) {
        fail();
    }
    const Server server(arguments.serverCore, [&] {
        modbus_tcp_accept(listening, &listener);
        serve(listening);
    });
    modbus_t* const context = modbus_new_tcp("127.0.0.1", 15020);
    modbus_set_response_timeout(context, kPatience, 0);
    if (modbus_connect(context) != 0) {
        fail();
    }
    measure(arguments, server, context);
}

modbus_t* rtuOn(int terminal)
{
    modbus_t* const context = modbus_new_rtu("/dev/null", 115200, 'N', 8, 1);
    modbus_set_slave(context, kSlave);
    modbus_set_socket(context, terminal);
    modbus_set_response_timeout(context, kPatience, 0);
    return context;
}

void measureRtu(const TripArguments& arguments)
{
    int ends[2];
    termios raw{};
    cfmakeraw(&raw);
    if (openpty(&ends[0], &ends[1], nullptr, &raw, nullptr) != 0) {
        throw std::runtime_error("there is no pseudo-terminal");
    }
    const Server server(arguments.serverCore, [&] { serve(rtuOn(ends[1])); });
    measure(arguments, server, rtuOn(ends[0]));
}

} // namespace

int main(int argc, char** argv)
{
    return runTrips(argc, argv, [](const TripArguments& arguments) {
        arguments.subject == "rtu" ? measureRtu(arguments) : measureTcp(arguments);
    });
}
