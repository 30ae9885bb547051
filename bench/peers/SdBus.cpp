// Ten typed values as the reply of a method, and events as signals of one value, over sd-bus on a pair of
// sockets without a daemon.
//
// usage: sdbus_peer trips|events [COUNT [CLIENT_CORE [SERVER_CORE]]]

#include <systemd/sd-bus.h>

#include <cstring>

#include "Trips.h"

namespace
{

constexpr const char* kPath = "/v";
constexpr const char* kInterface = "bench.Values";

void check(int result)
{
    if (result < 0) {
        throw std::runtime_error(std::strerror(-result));
    }
}

sd_bus* busOn(int socket, bool serves)
{
    sd_bus* bus = nullptr;
    check(sd_bus_new(&bus));
    check(sd_bus_set_fd(bus, socket, socket));
    sd_id128_t id{};
    id.bytes[0] = 1;
    if (serves) {
        check(sd_bus_set_server(bus, 1, id));
    }
    check(sd_bus_set_anonymous(bus, 1));
    check(sd_bus_start(bus));
    return bus;
}

int answer(sd_bus_message* request, void*, sd_bus_error*)
{
    return sd_bus_reply_method_return(request, "yyyyyyuixs", 1, 2, 3, 4, 5, 6, 4000000000U, -5,
                                      std::int64_t(123456789012), "twenty bytes of name");
}

void process(sd_bus* bus)
{
    const int done = sd_bus_process(bus, nullptr);
    check(done);
    if (done == 0) {
        check(sd_bus_wait(bus, UINT64_MAX));
    }
}

void measureTrips(const TripArguments& arguments, const int (&ends)[2])
{
    static const sd_bus_vtable methods[] = {
        SD_BUS_VTABLE_START(0),
        SD_BUS_METHOD("Get", "", "yyyyyyuixs", answer, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_VTABLE_END,
    };
    const Server server(arguments.serverCore, [&] {
        sd_bus* const bus = busOn(ends[1], true);
        check(sd_bus_add_object_vtable(bus, nullptr, kPath, kInterface, methods, nullptr));
        for (;;) {
            process(bus);
        }
    });
    sd_bus* const bus = busOn(ends[0], false);
    reportTrips(arguments.requests, {server.pid()}, [&] {
        sd_bus_message* reply = nullptr;
        check(sd_bus_call_method(bus, nullptr, kPath, kInterface, "Get", nullptr, &reply, ""));
        std::uint8_t bytes[6];
        std::uint32_t u32 = 0;
        std::int32_t i32 = 0;
        std::int64_t i64 = 0;
        const char* text = nullptr;
        check(sd_bus_message_read(reply, "yyyyyyuixs", &bytes[0], &bytes[1], &bytes[2], &bytes[3], &bytes[4],
                                  &bytes[5], &u32, &i32, &i64, &text));
        if (i64 != 123456789012) {
            throw std::runtime_error("other values");
        }
        sd_bus_message_unref(reply);
    });
}

int received = 0;

int take(sd_bus_message* signal, void*, sd_bus_error*)
{
    std::int32_t value = 0;
    received += sd_bus_message_read(signal, "i", &value) > 0 ? 1 : 0;
    return 0;
}

void measureEvents(const TripArguments& arguments, const int (&ends)[2])
{
    const Server server(arguments.serverCore, [&] {
        sd_bus* const bus = busOn(ends[1], true);
        while (sd_bus_is_ready(bus) == 0) {
            process(bus);
        }
        for (int i = 0; i < arguments.requests; ++i) {
            check(sd_bus_emit_signal(bus, kPath, kInterface, "Changed", "i", i));
            if (i % 64 == 63) {
                check(sd_bus_flush(bus)); // its queue is bounded
            }
        }
        check(sd_bus_flush(bus));
        pause();
    });
    sd_bus* const bus = busOn(ends[0], false);
    check(sd_bus_add_match(bus, nullptr, "type='signal'", take, nullptr));
    while (received == 0) {
        process(bus);
    }
    reportEvents(arguments.requests, [&] {
        while (received < arguments.requests) {
            process(bus);
        }
    });
}

} // namespace

int main(int argc, char** argv)
{
    return runTrips(argc, argv, [](const TripArguments& arguments) {
        int ends[2];
        openPair(ends, SOCK_NONBLOCK);
        arguments.subject == "events" ? measureEvents(arguments, ends) : measureTrips(arguments, ends);
    });
}
