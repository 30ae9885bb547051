// Pushes a file with CRC from a module to a host, two processes joined by a Unix socket, and compares with
// zmodem (sz and rz, blocks of up to 8 KiB) over a socket pair. Rounds of the two alternate, and only ratios
// within one round count. Both write the file that they receive; a module syncs it too.
//
// usage: push_bench [ROUNDS [MEGABYTES]]      environment: HOSTLINK, the program to measure

#include <sys/socket.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>

#include "Processes.h"

namespace
{

class PushBench
{
public:
    PushBench(std::string program, std::size_t megabytes)
        : m_program(std::move(program)), m_megabytes(megabytes)
    {
        std::filesystem::create_directory(m_directory / "in");
        std::mt19937 random(1);
        std::string bytes(megabytes << 20, '\0');
        for (char& byte : bytes) {
            byte = char(random());
        }
        std::ofstream(file(), std::ios::binary) << bytes;
    }

    /// Megabytes a second.
    double zmodem()
    {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
            throw std::runtime_error("socketpair failed");
        }
        const auto begin = Clock::now();
        Process receiver({"rz", "-y", "-q", "-b"}, ends[1], ends[1], m_directory / "in");
        Process sender({"sz", "-8", "-q", "-b", file()}, ends[0], ends[0]);
        close(ends[0]);
        close(ends[1]);
        sender.wait();
        receiver.wait();
        return finish(begin, sender.succeeded() && receiver.succeeded());
    }

    double push(std::size_t chunkSize)
    {
        const std::string link = "unix:" + (m_directory / "link");
        const std::string api = m_directory / "api";
        Process module(
            {m_program, "module", "--link", link, "--api", api, "--state-dir", m_directory / "state"});
        await("module", [&] { return std::filesystem::exists(api); });
        const std::string ready = m_directory / "ready";
        Process host({"sh", "-c",
                      "exec " + m_program + " host receive --link " + link + " --count 1 "
                          + (m_directory / "in") + " 2>" + ready});
        await("host",
              [&] { return std::filesystem::exists(ready) && std::filesystem::file_size(ready) > 0; });
        const auto begin = Clock::now();
        Process start({m_program, "node", "--api", api, "invoke", "VornHostLinkDataTransferPath",
                       R"({"action":0,"crc":true,"chunkSize":)" + std::to_string(chunkSize)
                           + R"(,"fileName":")" + file() + "\"}"});
        start.wait();
        host.wait();
        std::filesystem::remove(ready);
        return finish(begin, start.succeeded() && host.succeeded());
    }

private:
    std::string file() const { return m_directory / "file.bin"; }

    double finish(Clock::time_point begin, bool succeeded)
    {
        const double seconds = secondsSince(begin);
        const std::string received = m_directory / "in/file.bin";
        if (!succeeded || std::filesystem::file_size(received) != m_megabytes << 20) {
            throw std::runtime_error("the file was not received");
        }
        std::filesystem::remove(received);
        return double(m_megabytes) / seconds;
    }

    const std::string m_program;
    const std::size_t m_megabytes;
    const BenchDirectory m_directory;
};

} // namespace

int main(int argc, char** argv)
try {
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 5;
    const auto megabytes = std::size_t(argc > 2 ? std::atoi(argv[2]) : 64);
    const char* program = std::getenv("HOSTLINK");
    PushBench bench(program != nullptr ? program : HOSTLINK_PROGRAM, megabytes);
    std::vector<double> large;
    std::vector<double> small;
    for (int round = 0; round < rounds; ++round) {
        const double zmodem = bench.zmodem();
        const double at32768 = bench.push(32768);
        const double at4096 = bench.push(4096);
        large.push_back(at32768 / zmodem);
        small.push_back(at4096 / zmodem);
        std::printf("round %d: zmodem %.0f MB/s; chunks of 32768 %.0f MB/s, ratio %.2f; of 4096 %.0f MB/s, "
                    "ratio %.2f\n",
                    round + 1, zmodem, at32768, large.back(), at4096, small.back());
    }
    std::printf("median ratio %.2f at 32768, %.2f at 4096\n", median(large), median(small));
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "push_bench: %s\n", error.what());
    return 1;
}
