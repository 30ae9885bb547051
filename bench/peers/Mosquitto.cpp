// Ten values as bytes of a message, and events as messages, QoS 0, through mosquitto: client, broker and
// server are a process each, the broker and the server on one core.
//
// usage: mosquitto_peer trips|events [COUNT [CLIENT_CORE [SERVER_CORE]]]

#include <mosquitto.h>

#include <fstream>
#include <functional>

#include "Trips.h"

namespace
{

constexpr int kPort = 18830;

void check(int result)
{
    if (result != MOSQ_ERR_SUCCESS) {
        throw std::runtime_error(mosquitto_strerror(result));
    }
}

/// A client that runs on its caller's thread.
class Client
{
public:
    explicit Client(const char* topic) : m_client(mosquitto_new(nullptr, true, this))
    {
        mosquitto_int_option(m_client, MOSQ_OPT_TCP_NODELAY, 1);
        mosquitto_message_callback_set(m_client, [](mosquitto*, void* self, const mosquitto_message*) {
            ++static_cast<Client*>(self)->m_received;
        });
        mosquitto_subscribe_callback_set(m_client, [](mosquitto*, void* self, int, int, const int*) {
            static_cast<Client*>(self)->m_subscribed = true;
        });
        await("broker",
              [&] { return mosquitto_connect(m_client, "127.0.0.1", kPort, 60) == MOSQ_ERR_SUCCESS; });
        check(mosquitto_subscribe(m_client, nullptr, topic, 0));
        while (!m_subscribed) {
            wait();
        }
    }

    void publish(const char* topic, std::size_t size)
    {
        const char bytes[256] = {};
        check(mosquitto_publish(m_client, nullptr, topic, int(size), bytes, 0, false));
    }

    void wait() { check(mosquitto_loop(m_client, 1000, 100)); }

    void waitFor(int received)
    {
        while (m_received < received) {
            wait();
        }
    }

    bool wantsToWrite() { return mosquitto_want_write(m_client); }
    int received() const { return m_received; }

private:
    int m_received = 0;
    bool m_subscribed = false;
    mosquitto* m_client;
};

class Broker
{
public:
    explicit Broker(int core) : m_configuration(m_directory / "broker.conf")
    {
        std::ofstream(m_configuration) << "listener " << kPort << " 127.0.0.1\n"
                                       << "allow_anonymous true\nset_tcp_nodelay true\n"
                                       << "max_queued_messages 0\nuser root\n";
        cpu_set_t before;
        sched_getaffinity(0, sizeof before, &before);
        pinTo(core);
        m_process =
            std::make_unique<Process>(std::vector<std::string>{"/usr/sbin/mosquitto", "-c", m_configuration});
        sched_setaffinity(0, sizeof before, &before);
    }

    pid_t pid() const { return m_process->pid(); }

private:
    BenchDirectory m_directory;
    std::string m_configuration;
    std::unique_ptr<Process> m_process;
};

void measureTrips(const TripArguments& arguments)
{
    const Broker broker(arguments.serverCore);
    const Server server(arguments.serverCore, [] {
        Client client("get");
        for (int answered = 0;; ++answered) {
            client.waitFor(answered + 1);
            client.publish("values", kValueBytes);
        }
    });
    Client client("values");
    client.publish("get", 20); // until the server has subscribed, nobody answers
    for (int tries = 0; client.received() == 0; ++tries) {
        client.wait();
        if (tries % 10 == 9) {
            client.publish("get", 20);
        }
    }
    usleep(300'000);
    int received = client.received();
    mosquitto_lib_init();
    reportTrips(arguments.requests, {server.pid(), broker.pid()}, [&] {
        client.publish("get", 20);
        client.waitFor(++received);
    });
}

void measureEvents(const TripArguments& arguments)
{
    const Broker broker(arguments.serverCore);
    Client client("values");
    const Server server(arguments.serverCore, [&] {
        Client publisher("nothing");
        for (int i = 0; i < arguments.requests; ++i) {
            publisher.publish("values", 8);
            while (publisher.wantsToWrite()) {
                publisher.wait();
            }
        }
        for (;;) {
            publisher.wait();
        }
    });
    client.waitFor(1);
    reportEvents(arguments.requests, [&] { client.waitFor(arguments.requests); });
}

} // namespace

int main(int argc, char** argv)
{
    return runTrips(argc, argv, [](const TripArguments& arguments) {
        mosquitto_lib_init();
        arguments.subject == "events" ? measureEvents(arguments) : measureTrips(arguments);
    });
}
