// A file pushed with CRC from a module to a host, two processes joined by a Unix socket, chunks of any size,
// beside three others over a socket pair: zmodem (sz and rz, blocks of up to 8 KiB), xmodem-1k, and a bare
// loop that waits for an acknowledgement of each 8 KiB. All write the file that they receive; a host syncs it
// too.
//
// usage: push_bench zmodem|xmodem|loop|CHUNK_SIZE [MEGABYTES]      environment: HOSTLINK, the program to
// measure

#include <cstdlib>
#include <fstream>
#include <random>

#include "LinkedHost.h"
#include "Processes.h"
#include "host/FileReceiver.h"
#include "runtime/NodeClient.h"

namespace
{

constexpr std::size_t kLoopBlock = 8 * 1024;
constexpr std::chrono::seconds kPatience{5};

struct Result {
    double megabytesPerSecond;
    double cpuMillisecondsPerMegabyte; ///< of both sides
};

class PushBench
{
public:
    explicit PushBench(std::size_t megabytes) : m_megabytes(megabytes)
    {
        std::filesystem::create_directory(m_directory / "in");
        std::mt19937 random(1);
        std::string bytes(megabytes << 20, '\0');
        for (char& byte : bytes) {
            byte = char(random());
        }
        std::ofstream(file(), std::ios::binary) << bytes;
    }

    Result modem(const std::vector<std::string>& receive, const std::vector<std::string>& send)
    {
        int ends[2];
        openPair(ends);
        const auto begin = Clock::now();
        Process receiver(receive, ends[1], ends[1], m_directory / "in");
        Process sender(send, ends[0], ends[0]);
        close(ends[0]);
        close(ends[1]);
        const double seconds = sender.wait() + receiver.wait();
        return finish(begin, seconds, sender.succeeded() && receiver.succeeded());
    }

    Result zmodem() { return modem({"rz", "-y", "-q", "-b"}, {"sz", "-8", "-q", "-b", file()}); }
    Result xmodem()
    {
        return modem({"rx", "-y", "-q", "-b", "-c", "file.bin"}, {"sx", "-q", "-k", "-b", file()});
    }

    Result loop()
    {
        int ends[2];
        openPair(ends);
        const Server receiver(-1, [&] {
            close(ends[0]);
            receiveLoop(ends[1]);
            pause();
        });
        const double busyBefore = processorSeconds(0);
        const auto begin = Clock::now();
        std::ifstream from(file(), std::ios::binary);
        std::vector<char> block(kLoopBlock);
        bool acknowledged = true;
        while (acknowledged && from.read(block.data(), std::streamsize(block.size()))) {
            char acknowledgement;
            acknowledged = write(ends[0], block.data(), block.size()) == ssize_t(block.size())
                           && read(ends[0], &acknowledgement, 1) == 1;
        }
        return finish(begin, processorSeconds(0) - busyBefore + processorSeconds(receiver.pid()),
                      acknowledged);
    }

    Result push(const std::string& program, int chunkSize)
    {
        const std::string link = m_directory / "link";
        const std::string api = m_directory / "api";
        Process module({program, "module", "--link", "unix:" + link, "--api", api, "--state-dir",
                        m_directory / "state"});
        await("module", [&] { return std::filesystem::exists(api); });
        LinkedHost linked(link);
        HostSession& session = linked.session;
        std::string failure;
        bool received = false;
        FileReceiver receiver(m_directory / "in", [&](const FileReceiver::Report& report) {
            received = received || report.kind == FileReceiver::Report::Kind::Received;
            failure = report.kind == FileReceiver::Report::Kind::Failed ? report.reason : failure;
        });
        session.addChannel(receiver);
        session.open();
        NodeClient client;
        QString error;
        if (!client.connect(QString::fromStdString(api), kPatience, &error)) {
            throw std::runtime_error(error.toStdString());
        }

        const QVariantHash parameters{{"action", 0},
                                      {"crc", true},
                                      {"chunkSize", chunkSize},
                                      {"fileName", QString::fromStdString(file())}};
        const double busyBefore = processorSeconds(0) + processorSeconds(module.pid());
        const auto begin = Clock::now();
        client.call("invoke", {{"path", "VornHostLinkDataTransferPath"}, {"data", parameters}}, kPatience,
                    &error);
        ByteArray message;
        while (!received && failure.empty()
               && session.receive(&message, session.now() + kPatience) != Host::Event::TimedOut) {
        }
        const double busy = processorSeconds(0) + processorSeconds(module.pid()) - busyBefore;
        return finish(begin, busy, received);
    }

private:
    void receiveLoop(int end) const
    {
        std::ofstream to(received(), std::ios::binary);
        std::vector<char> block(kLoopBlock);
        for (std::size_t total = 0; total < m_megabytes << 20; total += block.size()) {
            for (std::size_t size = 0; size < block.size();) {
                const ssize_t got = read(end, block.data() + size, block.size() - size);
                if (got <= 0) {
                    return;
                }
                size += std::size_t(got);
            }
            to.write(block.data(), std::streamsize(block.size()));
            to.flush();
            if (write(end, "", 1) != 1) {
                return;
            }
        }
    }

    std::string file() const { return m_directory / "file.bin"; }
    std::string received() const { return m_directory / "in/file.bin"; }

    Result finish(Clock::time_point begin, double busySeconds, bool succeeded) const
    {
        const double seconds = secondsSince(begin);
        if (!succeeded || std::filesystem::file_size(received()) < m_megabytes << 20) {
            throw std::runtime_error("the file was not received");
        }
        return {double(m_megabytes) / seconds, 1000 * busySeconds / double(m_megabytes)};
    }

    const std::size_t m_megabytes;
    const BenchDirectory m_directory{"/dev/shm"}; // no disk has a part in it
};

} // namespace

int main(int argc, char** argv)
{
    return runBench([&] {
        const std::string subject = argc > 1 ? argv[1] : "32768";
        const char* program = std::getenv("HOSTLINK");
        PushBench bench(std::size_t(argc > 2 ? std::atoi(argv[2]) : 64));
        const Result result =
            subject == "zmodem"   ? bench.zmodem()
            : subject == "xmodem" ? bench.xmodem()
            : subject == "loop"
                ? bench.loop()
                : bench.push(program != nullptr ? program : HOSTLINK_PROGRAM, std::stoi(subject));
        report("mb_per_s", result.megabytesPerSecond);
        report("cpu_ms_per_mb", result.cpuMillisecondsPerMegabyte);
    });
}
