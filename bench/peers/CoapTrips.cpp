// Ten values as the bytes of a resource, confirmed requests of libcoap over UDP.
//
// usage: coap_trips udp [REQUESTS [CLIENT_CORE [SERVER_CORE]]]

#include <arpa/inet.h>
#include <coap3/coap.h>

#include "Trips.h"

namespace
{

constexpr std::uint16_t kPort = 15683;

coap_address_t address()
{
    coap_address_t address;
    coap_address_init(&address);
    address.size = sizeof address.addr.sin;
    address.addr.sin.sin_family = AF_INET;
    address.addr.sin.sin_port = htons(kPort);
    address.addr.sin.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

void answer(coap_resource_t*, coap_session_t*, const coap_pdu_t*, const coap_string_t*, coap_pdu_t* response)
{
    const std::uint8_t values[kValueBytes] = {};
    coap_pdu_set_code(response, COAP_RESPONSE_CODE_CONTENT);
    coap_add_data(response, sizeof values, values);
}

void serve()
{
    coap_context_t* const context = coap_new_context(nullptr);
    const coap_address_t here = address();
    if (coap_new_endpoint(context, &here, COAP_PROTO_UDP) == nullptr) {
        throw std::runtime_error("cannot listen");
    }
    coap_resource_t* const resource = coap_resource_init(coap_make_str_const("v"), 0);
    coap_register_handler(resource, COAP_REQUEST_GET, answer);
    coap_add_resource(context, resource);
    for (;;) {
        coap_io_process(context, COAP_IO_WAIT);
    }
}

bool answered = false;

coap_response_t take(coap_session_t*, const coap_pdu_t*, const coap_pdu_t* received, coap_mid_t)
{
    std::size_t size = 0;
    const std::uint8_t* data = nullptr;
    answered = coap_get_data(received, &size, &data) != 0 && size == kValueBytes;
    return COAP_RESPONSE_OK;
}

void measure(const TripArguments& arguments)
{
    coap_startup();
    const Server server(arguments.serverCore, serve);
    usleep(100'000); // a datagram to nobody would be repeated seconds later
    coap_context_t* const context = coap_new_context(nullptr);
    const coap_address_t there = address();
    coap_session_t* const session = coap_new_client_session(context, nullptr, &there, COAP_PROTO_UDP);
    if (session == nullptr) {
        throw std::runtime_error("no session");
    }
    coap_register_response_handler(context, take);
    reportTrips(arguments.requests, {server.pid()}, [&] {
        coap_pdu_t* const request = coap_new_pdu(COAP_MESSAGE_CON, COAP_REQUEST_CODE_GET, session);
        coap_add_option(request, COAP_OPTION_URI_PATH, 1, reinterpret_cast<const std::uint8_t*>("v"));
        answered = false;
        coap_send(session, request);
        while (!answered) {
            if (coap_io_process(context, 5000) < 0) {
                throw std::runtime_error("no answer");
            }
        }
    });
}

} // namespace

int main(int argc, char** argv)
{
    return runTrips(argc, argv, measure);
}
