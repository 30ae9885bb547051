#include "modules/hostlink/DataTransfer.h"

#include <sys/stat.h>
#include <zlib.h>

#include <QFile>
#include <QTemporaryDir>
#include <filesystem>
#include <functional>
#include <numeric>

#include "platform/hostlink/HexText.h"
#include "support/HandlerFixture.h"

namespace
{

using Parameters = VornHostLinkDataTransferParameters;
using Status = VornHostLinkDataTransferStatus;
using Texts = std::vector<std::string>;

/// One chunk as the host gets it.
struct Chunk {
    std::vector<int> tags; ///< in their order
    std::string name;
    std::uint32_t index = 0;
    std::string data;
    std::uint32_t crc = 0;
};

class DataTransferTest : public HandlerFixture
{
protected:
    DataTransferTest() { m_handler = &m_transfer; }

    /// How many descriptors of this process are of the file.
    static int descriptorsOf(const QString& path)
    {
        int count = 0;
        for (const auto& each : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code gone; // the one of this walk
            count += std::filesystem::read_symlink(each, gone) == path.toStdString() ? 1 : 0;
        }
        return count;
    }

    /// A file of bytes that differ all along; its path.
    QString makeFile(const QString& name, int size)
    {
        m_content.resize(std::size_t(size));
        for (int i = 0; i < size; ++i) {
            m_content[std::size_t(i)] = char(i % 251);
        }
        const QString path = m_directory.filePath(name);
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        EXPECT_EQ(file.write(m_content.data(), size), size);
        return path;
    }

    static CMVoidReply activate(const Parameters& params)
    {
        return invoke(VornHostLinkDataTransferPath(), params);
    }

    static Parameters startOf(const QString& fileName)
    {
        return Parameters().setAction(Parameters::Start).setFileName(fileName);
    }

    static CMVoidReply start(const QString& fileName, qint64 chunkSize)
    {
        return activate(startOf(fileName).setChunkSize(chunkSize));
    }

    static CMVoidReply stop() { return activate(Parameters().setAction(Parameters::Stop)); }

    static std::string refusal(const Parameters& params)
    {
        return activate(params).error().Message().toStdString();
    }

    static Status status() { return valueAt(VornHostLinkDataTransferStatusPath()); }

    void answer(int response)
    {
        HostLinkValueMessage message(MSG_DataTransferResponse);
        message.addValueInt32(0, response);
        deliver(message.serialize());
    }

    Chunk nextChunk()
    {
        const HostLinkValueMessage message(m_host->receive());
        EXPECT_EQ(message.id(), MSG_DataTransfer);
        Chunk chunk;
        for (int i = 0; i < message.size(); ++i) {
            const int tag = message.getTag(i);
            chunk.tags.push_back(tag);
            if (tag == 0) {
                chunk.name = message.getString(i);
            } else if (tag == 1) {
                chunk.index = message.getUint32(i);
            } else if (tag == 2) {
                const ByteArray data = message.getBin16(i);
                chunk.data.assign(data.begin(), data.end());
            } else if (tag == 4) {
                chunk.crc = message.getUint32(i);
            }
        }
        return chunk;
    }

    QTemporaryDir m_directory;
    std::string m_content;                                                 ///< of the file that was made last
    DataTransfer& m_transfer = *new DataTransfer(&m_worker, &m_transport); ///< the worker's
};

const std::string kIdle = R"({"active":false})";

TEST_F(DataTransferTest, AtFirstTheStatusSaysOnlyThatNothingRuns)
{
    EXPECT_EQ(status().toJsonString().toStdString(), kIdle);
}

TEST_F(DataTransferTest, TheStatusCannotBeWrittenFromOutside)
{
    const CMVoidReply reply;
    CMRoot()->setValue(VornHostLinkDataTransferStatusPath(), Status().setActive(true), reply);
    ASSERT_TRUE(waitFor([&] { return reply.isFinished(); }));
    EXPECT_EQ(reply.error().code(), CMError::ReadOnly);
    EXPECT_EQ(status().toJsonString().toStdString(), kIdle);
}

TEST_F(DataTransferTest, TheActionsPermissionIs9999)
{
    int permission = 0;
    for (const CMNode* node : m_worker.nodes()->findChildren<CMActivateNode*>()) {
        EXPECT_EQ(node->path(), VornHostLinkDataTransferPath());
        permission = node->permission();
    }
    EXPECT_EQ(permission, 9999);
}

TEST_F(DataTransferTest, AStartIsAnsweredWithTheStatusBeforeTheFirstChunk)
{
    const QString path = makeFile("song.flac", 8193);
    const CMVoidReply reply = start(path, 4096);
    EXPECT_FALSE(reply.error().isError());
    const Status answered = VornHash(reply.value().toHash());
    EXPECT_TRUE(answered.active());
    EXPECT_EQ(answered.bytesTotal(), 8193);
    EXPECT_EQ(answered.chunksTotal(), 3);
    EXPECT_FALSE(answered.contains(Status::BytesSent()));
    EXPECT_FALSE(answered.contains(Status::ChunksSent()));
    EXPECT_FALSE(answered.contains(Status::Error()));
    EXPECT_EQ(answered.params().fileName(), path);
    EXPECT_EQ(answered.params().chunkSize(), 4096);
    EXPECT_EQ(answered.params().timeout(), 3000);
}

TEST_F(DataTransferTest, AFileOfThreeChunksIsSentAnswerByAnswer)
{
    start(makeFile("song.flac", 8193), 4096);
    const Chunk first = nextChunk();
    EXPECT_EQ(first.tags, (std::vector<int>{0, 1, 2}));
    EXPECT_EQ(first.name, "song.flac") << "not its directory";
    EXPECT_EQ(first.index, 0U);
    EXPECT_EQ(first.data, m_content.substr(0, 4096));
    EXPECT_EQ(status().bytesSent(), 4096);
    EXPECT_EQ(status().chunksSent(), 1);
    EXPECT_TRUE(nothingSent()) << "the next one waits for the answer";

    answer(0);
    const Chunk second = nextChunk();
    EXPECT_EQ(second.tags, (std::vector<int>{1, 2}));
    EXPECT_EQ(second.index, 1U);
    EXPECT_EQ(second.data, m_content.substr(4096, 4096));
    EXPECT_EQ(status().bytesSent(), 8192);

    answer(1);
    const Chunk third = nextChunk();
    EXPECT_EQ(third.tags, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(third.index, 2U);
    EXPECT_EQ(third.data, m_content.substr(8192));
    EXPECT_EQ(status().bytesSent(), 8193);
    EXPECT_EQ(status().chunksSent(), 3);
    EXPECT_TRUE(status().active());

    m_log.clear();
    answer(2);
    EXPECT_TRUE(nothingSent());
    EXPECT_FALSE(status().active());
    EXPECT_FALSE(status().contains(Status::Error()));
    EXPECT_EQ(status().bytesSent(), 8193) << "the counters stay";
    EXPECT_EQ(m_log.infos(), Texts{"Data transfer: Last chunk send OK!"});
}

TEST_F(DataTransferTest, AFileThatEndsWithItsLastChunkMarksThatOne)
{
    start(makeFile("even", 512), 256);
    EXPECT_EQ(nextChunk().tags, (std::vector<int>{0, 1, 2}));
    answer(0);
    const Chunk last = nextChunk();
    EXPECT_EQ(last.tags, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(last.data.size(), 256U);
}

TEST_F(DataTransferTest, TheChecksumOfEachChunkStandsBeforeTheEndMark)
{
    EXPECT_FALSE(activate(startOf(makeFile("song", 8193)).setCrc(true)).error().isError());
    const Chunk first = nextChunk();
    EXPECT_EQ(first.tags, (std::vector<int>{0, 1, 2, 4}));
    EXPECT_EQ(first.data.size(), 4096U) << "when no size is asked for";
    const auto crcOf = [](const std::string& data) {
        return crc32(0, reinterpret_cast<const Bytef*>(data.data()), uInt(data.size()));
    };
    EXPECT_EQ(first.crc, crcOf(first.data));
    answer(0);
    EXPECT_EQ(nextChunk().tags, (std::vector<int>{1, 2, 4}));
    answer(1);
    const Chunk last = nextChunk();
    EXPECT_EQ(last.tags, (std::vector<int>{1, 2, 4, 3}));
    EXPECT_EQ(last.crc, crcOf(last.data));
}

TEST_F(DataTransferTest, AFileOfOneChunkCompletesWithoutOne)
{
    for (const int size : {0, 1, 4095, 4096}) {
        EXPECT_FALSE(start(makeFile("small", size), 4096).error().isError());
        EXPECT_TRUE(waitFor([] { return !status().active(); }));
        EXPECT_FALSE(status().contains(Status::Error()));
        EXPECT_FALSE(status().contains(Status::ChunksSent()));
        EXPECT_EQ(status().chunksTotal(), size > 0 ? 1 : 0);
        EXPECT_TRUE(nothingSent());
    }
}

TEST_F(DataTransferTest, ChunkSizesOf128To32768AreTaken)
{
    const QString path = makeFile("song", 70000);
    for (const qint64 size : {128, 32768}) {
        EXPECT_FALSE(start(path, size).error().isError());
        EXPECT_EQ(nextChunk().data.size(), std::size_t(size));
        stop();
        EXPECT_EQ(receive(), "MSG_DataTransfer 5=nil");
    }
    for (const qint64 size : {qint64{127}, qint64{32769}, qint64{0}, qint64{-1}, qint64{1} << 32,
                              std::numeric_limits<qint64>::min(), std::numeric_limits<qint64>::max()}) {
        EXPECT_EQ(refusal(startOf(path).setChunkSize(size)), "128 <= chunkSize <= 32768") << size;
    }
    EXPECT_TRUE(nothingSent());
}

TEST_F(DataTransferTest, ARefusedChunkSizeLeavesTheStatusAndTheNextStartWorks)
{
    const QString other = makeFile("other", 300);
    const QString path = makeFile("song", 1000);
    EXPECT_EQ(refusal(startOf(other).setChunkSize(5)), "128 <= chunkSize <= 32768");
    EXPECT_EQ(status().toJsonString().toStdString(), kIdle);
    EXPECT_FALSE(start(path, 512).error().isError());
    const Chunk chunk = nextChunk();
    EXPECT_EQ(chunk.name, "song");
    EXPECT_EQ(chunk.data, m_content.substr(0, 512));
}

TEST_F(DataTransferTest, AFileThatCannotBeOpenedIsNamedInFull)
{
    const QString missing = m_directory.filePath("100%1 missing");
    EXPECT_EQ(refusal(startOf(missing)), "Failed to open file '" + missing.toStdString() + "'");
    EXPECT_EQ(refusal(startOf(m_directory.path())),
              "Failed to open file '" + m_directory.path().toStdString() + "'");
    EXPECT_EQ(refusal(Parameters()), "Failed to open file ''");
    EXPECT_EQ(status().toJsonString().toStdString(), kIdle);
    EXPECT_TRUE(nothingSent());
}

TEST_F(DataTransferTest, OnlyPlainFilesAreOpened)
{
    const QString pipe = m_directory.filePath("pipe");
    ASSERT_EQ(::mkfifo(qPrintable(pipe), 0600), 0);
    const QString link = m_directory.filePath("link");
    ASSERT_TRUE(QFile::link("/dev/null", link));
    for (const QString& name : {pipe, link, QString("/dev/zero"), QString(":/DefaultProfile.json"),
                                makeFile("song", 1) + QChar(0) + ".txt"}) {
        EXPECT_EQ(refusal(startOf(name)), "Failed to open file '" + name.toStdString() + "'");
    }
    EXPECT_EQ(status().toJsonString().toStdString(), kIdle);
}

TEST_F(DataTransferTest, ALinkToAPlainFileIsOneAndHasItsOwnName)
{
    const QString link = m_directory.filePath("link");
    ASSERT_TRUE(QFile::link(makeFile("song", 300), link));
    EXPECT_FALSE(start(link, 200).error().isError());
    const Chunk chunk = nextChunk();
    EXPECT_EQ(chunk.name, "link");
    EXPECT_EQ(chunk.data, m_content.substr(0, 200));
}

TEST_F(DataTransferTest, RefusalsAreErrorsOfTheDefaultNameAndTitle)
{
    const CMVoidReply reply = activate(Parameters().setAction(2));
    EXPECT_EQ(reply.error().Message(), "Operation not implemented!");
    EXPECT_EQ(reply.error().Name(), CMError::defaultName());
    EXPECT_EQ(reply.error().Title(), CMError::defaultTitle());
    EXPECT_EQ(refusal(Parameters().setAction(-1)), "Operation not implemented!");
    EXPECT_EQ(status().toJsonString().toStdString(), kIdle);
}

TEST_F(DataTransferTest, NothingButAStopIsTakenWhileATransferRuns)
{
    const QString path = makeFile("song", 1000);
    start(path, 128);
    nextChunk();
    const VornHash before = status();
    EXPECT_EQ(refusal(startOf(path)), "Data transfer is already in progress!");
    EXPECT_EQ(refusal(Parameters().setAction(7)), "Data transfer is already in progress!");
    EXPECT_EQ(VornHash(status()), before);
    answer(0);
    EXPECT_EQ(nextChunk().index, 1U) << "it goes on";
}

TEST_F(DataTransferTest, AStopEndsTheTransferAndTellsTheHost)
{
    start(makeFile("song", 1000), 128);
    nextChunk();
    const CMVoidReply reply = stop();
    EXPECT_FALSE(reply.error().isError());
    EXPECT_EQ(Status(VornHash(reply.value().toHash())).error(), "Stopped by API request");
    EXPECT_EQ(receive(), "MSG_DataTransfer 5=nil");
    EXPECT_FALSE(status().active());
    EXPECT_EQ(status().error(), "Stopped by API request");
    EXPECT_EQ(status().bytesSent(), 128) << "the counters stay";

    m_log.clear();
    answer(0);
    EXPECT_EQ(m_log.warnings(), Texts{"Data transfer: sendFileChunk requested but there is no active data "
                                      "transfer, ignoring..."});
    EXPECT_TRUE(nothingSent());
}

TEST_F(DataTransferTest, AStopIsTakenWhileNothingRuns)
{
    EXPECT_FALSE(stop().error().isError());
    EXPECT_EQ(receive(), "MSG_DataTransfer 5=nil");
    EXPECT_EQ(status().error(), "Stopped by API request");
}

TEST_F(DataTransferTest, AStopBeforeTheFirstChunkSendsNone)
{
    const QString path = makeFile("song", 1000);
    const CMVoidReply started;
    const CMVoidReply stopped;
    CMRoot()->invoke(VornHostLinkDataTransferPath(), startOf(path).setChunkSize(128), started);
    CMRoot()->invoke(VornHostLinkDataTransferPath(), Parameters().setAction(Parameters::Stop), stopped);
    ASSERT_TRUE(waitFor([&] { return started.isFinished() && stopped.isFinished(); }));
    const std::string first = receive();
    EXPECT_TRUE(first == "MSG_DataTransfer 5=nil" || receive() == "MSG_DataTransfer 5=nil") << first;
    EXPECT_TRUE(nothingSent());
    EXPECT_EQ(status().error(), "Stopped by API request");
}

TEST_F(DataTransferTest, AHostThatAnswersMinusOneEndsIt)
{
    start(makeFile("song", 1000), 128);
    nextChunk();
    m_log.clear();
    answer(-1);
    EXPECT_EQ(status().error(), "Block failed");
    EXPECT_FALSE(status().active());
    EXPECT_EQ(m_log.errors(), Texts{"Data transfer: Block failed"});
    EXPECT_TRUE(nothingSent());
}

TEST_F(DataTransferTest, AnswersBelowMinusTwoAreInvalid)
{
    for (const int response : {-3, std::numeric_limits<int>::min()}) {
        start(makeFile("song", 1000), 128);
        nextChunk();
        m_log.clear();
        answer(response);
        const std::string error = "Invalid response from host (" + std::to_string(response) + ")";
        EXPECT_EQ(status().error().toStdString(), error);
        EXPECT_FALSE(status().active());
        EXPECT_EQ(m_log.errors(), Texts{"Data transfer: " + error});
        EXPECT_TRUE(nothingSent());
    }
}

TEST_F(DataTransferTest, MinusTwoSendsTheChunkAgain)
{
    start(makeFile("song", 8193), 4096);
    nextChunk();
    answer(0);
    nextChunk();
    const VornHash before = status();
    m_log.clear();
    answer(-2);
    const Chunk again = nextChunk();
    EXPECT_EQ(again.tags, (std::vector<int>{1, 2}));
    EXPECT_EQ(again.index, 1U);
    EXPECT_EQ(again.data, m_content.substr(4096, 4096));
    EXPECT_EQ(VornHash(status()), before);
    const std::string name = m_directory.filePath("song").toStdString();
    EXPECT_EQ(m_log.warnings(), Texts{"Data transfer: '" + name + "': sending chunk 1 / 2, size 4096"});
    answer(1);
    EXPECT_EQ(nextChunk().index, 2U);
}

TEST_F(DataTransferTest, TheFirstChunkAgainHasNoName)
{
    start(makeFile("song", 1000), 128);
    EXPECT_EQ(nextChunk().name, "song");
    answer(-2);
    const Chunk again = nextChunk();
    EXPECT_EQ(again.tags, (std::vector<int>{1, 2}));
    EXPECT_EQ(again.index, 0U);
    EXPECT_EQ(again.data, m_content.substr(0, 128));
}

TEST_F(DataTransferTest, AShortLastChunkAgainBeginsAChunkSizeBeforeTheEnd)
{
    start(makeFile("song", 300), 256);
    nextChunk();
    answer(0);
    EXPECT_EQ(nextChunk().data, m_content.substr(256));
    answer(-2);
    const Chunk again = nextChunk();
    EXPECT_EQ(again.tags, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(again.index, 1U);
    EXPECT_EQ(again.data, m_content.substr(300 - 256));
}

TEST_F(DataTransferTest, MinusTwoBeforeAnyChunkIsDropped)
{
    const QString path = makeFile("song", 1000);
    m_log.clear();
    const CMSetDataRequest request(QVariant(QVariantHash(startOf(path).setChunkSize(128))), {});
    m_transfer.on_hostlinkDataTransfer_activated(request);
    m_transfer.sendFileChunk(-2);
    EXPECT_EQ(m_log.errors(), Texts{"Data transfer: '" + path.toStdString()
                                    + "': m_fileToSend.seek(bytesSent) == true does not hold, ignoring..."});
    EXPECT_TRUE(status().active());
    EXPECT_EQ(nextChunk().index, 0U) << "the start is still under way";
    EXPECT_TRUE(nothingSent());
}

TEST_F(DataTransferTest, AnyAnswerFromZeroOnCountsForTheChunkThatWasSent)
{
    start(makeFile("song", 1000), 128); // 8 chunks
    nextChunk();
    answer(5);
    EXPECT_EQ(nextChunk().index, 1U);
    answer(0);
    EXPECT_EQ(nextChunk().index, 2U);
    answer(7);
    EXPECT_FALSE(status().active()) << "the index of the last chunk completes at any time";
    EXPECT_FALSE(status().contains(Status::Error()));
    EXPECT_EQ(status().chunksSent(), 3);
}

TEST_F(DataTransferTest, AnAnswerThatIsNoNumberCountsAsZero)
{
    start(makeFile("song", 1000), 128);
    nextChunk();
    m_log.clear();
    HostLinkValueMessage message(MSG_DataTransferResponse);
    message.addValueUint8(17, 200);
    deliver(message.serialize());
    EXPECT_EQ(nextChunk().index, 1U);
    EXPECT_EQ(m_log.count(log4cplus::DEBUG_LOG_LEVEL, "size: 1 tag: 17"), 1U);
    deliver(HostLinkValueMessage(MSG_DataTransferResponse).serialize());
    EXPECT_EQ(nextChunk().index, 2U);
    EXPECT_EQ(m_log.count(log4cplus::DEBUG_LOG_LEVEL, "size: 0 tag: 0"), 1U);
}

TEST_F(DataTransferTest, AHostThatDoesNotAnswerEndsItAfterTheTimeout)
{
    const QString path = makeFile("song", 1000);
    activate(startOf(path).setChunkSize(128).setTimeout(30));
    EXPECT_EQ(status().params().timeout(), 30);
    m_log.clear();
    nextChunk();
    EXPECT_TRUE(waitFor([] { return !status().active(); }));
    EXPECT_EQ(status().error(), "Timeout");
    EXPECT_EQ(m_log.errors(), Texts{"Data transfer: timeout"});
    EXPECT_TRUE(nothingSent());
    EXPECT_FALSE(start(path, 128).error().isError()) << "another one may start";
    EXPECT_EQ(status().params().timeout(), 3000) << "the time is of one transfer";
}

TEST_F(DataTransferTest, ANegativeTimeoutEndsItAtOnce)
{
    const QString path = makeFile("song", 1000);
    activate(startOf(path).setChunkSize(128).setTimeout(-1));
    nextChunk();
    EXPECT_TRUE(waitFor([] { return !status().active(); }));
    EXPECT_EQ(status().error(), "Timeout");
    EXPECT_FALSE(start(path, 128).error().isError()) << "another one may start";
}

TEST_F(DataTransferTest, EachChunkHasTheWholeTimeout)
{
    start(makeFile("song", 1000), 128);
    nextChunk();
    auto* const timer = m_transfer.findChild<QTimer*>();
    ASSERT_NE(timer, nullptr);
    EXPECT_TRUE(timer->isSingleShot());
    EXPECT_EQ(timer->interval(), 3000);
    timer->setInterval(100'000); // what was running goes on with this
    answer(0);
    nextChunk();
    EXPECT_GT(timer->remainingTime(), 50'000);
}

TEST_F(DataTransferTest, TheTimerOfACompletedTransferRunsOutUnnoticed)
{
    start(makeFile("song", 300), 256);
    nextChunk();
    answer(0);
    nextChunk();
    answer(1);
    ASSERT_FALSE(status().active());
    const VornHash before = status();
    auto* const timer = m_transfer.findChild<QTimer*>();
    EXPECT_TRUE(timer->isActive());
    timer->start(0);
    EXPECT_TRUE(waitFor([&] { return !timer->isActive(); }));
    EXPECT_EQ(VornHash(status()), before);
    EXPECT_TRUE(m_log.errors().empty());
}

TEST_F(DataTransferTest, AFileThatShrinksEndsWithEmptyChunks)
{
    const QString path = makeFile("song", 100'000);
    start(path, 32768); // 4 chunks, each of a read of its own
    nextChunk();
    ASSERT_TRUE(QFile::resize(path, 40'000));
    answer(0);
    const Chunk shortened = nextChunk();
    EXPECT_EQ(shortened.tags, (std::vector<int>{1, 2, 3}));
    EXPECT_TRUE(shortened.data == m_content.substr(32768, 40'000 - 32768));
    answer(1);
    const Chunk empty = nextChunk();
    EXPECT_EQ(empty.tags, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(empty.index, 2U);
    EXPECT_EQ(empty.data, "");
    answer(2);
    EXPECT_EQ(nextChunk().index, 3U);
    answer(3);
    EXPECT_FALSE(status().active());
    EXPECT_FALSE(status().contains(Status::Error()));
    EXPECT_EQ(status().bytesSent(), 40'000);
    EXPECT_EQ(status().bytesTotal(), 100'000);
}

TEST_F(DataTransferTest, AFileThatCannotBeReadIsSaidAndSendsEmptyChunks)
{
    const QString path = "/sys/class/net/lo/speed"; // 4096 bytes, and the loopback device has no speed
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() != 4096 || file.read(1).size() != 0) {
        GTEST_SKIP() << "there is no such file here";
    }
    start(path, 2048);
    EXPECT_EQ(nextChunk().data, "");
    EXPECT_EQ(m_log.errors(),
              (Texts{"Data transfer: '/sys/class/net/lo/speed' cannot be read: Invalid argument"}));
}

TEST_F(DataTransferTest, AFileThatGrowsIsSentUpToItsSizeAtTheStart)
{
    const QString path = makeFile("song", 65'536);
    start(path, 32768);
    nextChunk();
    ASSERT_TRUE(QFile::resize(path, 100'000));
    answer(0);
    const Chunk last = nextChunk();
    EXPECT_EQ(last.tags, (std::vector<int>{1, 2})) << "the file goes on behind it";
    EXPECT_TRUE(last.data == m_content.substr(32768));
    answer(1);
    EXPECT_TRUE(nothingSent());
    EXPECT_FALSE(status().active());
    EXPECT_FALSE(status().contains(Status::Error()));
    EXPECT_EQ(status().bytesSent(), 65'536);
}

TEST_F(DataTransferTest, AFileOfMoreThanFourGigabytesIsCountedInFull)
{
    const QString path = m_directory.filePath("large");
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    if (!file.resize(5'368'709'121)) {
        GTEST_SKIP() << "no room for a file with a hole: " << file.errorString().toStdString();
    }
    start(path, 32768);
    EXPECT_EQ(nextChunk().data, std::string(32768, '\0'));
    EXPECT_EQ(status().bytesTotal(), 5'368'709'121);
    EXPECT_EQ(status().chunksTotal(), 163'841);
    answer(0);
    EXPECT_EQ(nextChunk().index, 1U);
}

TEST_F(DataTransferTest, ANameIsSentInUtf8)
{
    start(makeFile(QString::fromUtf8("Gr\u00fc\u00dfe \U0001F3B5.flac"), 300), 256);
    EXPECT_EQ(nextChunk().name, "Gr\u00fc\u00dfe \U0001F3B5.flac");
}

TEST_F(DataTransferTest, EveryEndClosesTheFile)
{
    const QString path = makeFile("song", 1000);
    const std::pair<const char*, std::function<void()>> ends[] = {
        {"completed", [&] { answer(7); }},
        {"failed", [&] { answer(-1); }},
        {"invalid answer", [&] { answer(-3); }},
        {"stopped", [] { stop(); }},
        {"timed out", [&] { m_transfer.on_dataTransferTimer_timeout(); }},
        {"shut down", [&] { m_transfer.shutdown(); }},
    };
    for (const auto& [name, end] : ends) {
        start(path, 128);
        ASSERT_TRUE(waitFor([] { return status().chunksSent() == 1; })) << name;
        EXPECT_EQ(descriptorsOf(path), 1) << name;
        end();
        EXPECT_FALSE(status().active()) << name;
        EXPECT_EQ(descriptorsOf(path), 0) << name;
    }
}

TEST_F(DataTransferTest, FilesOfRefusedStartsDoNotPileUp)
{
    const QString path = makeFile("song", 1000);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(refusal(startOf(path).setChunkSize(5)), "128 <= chunkSize <= 32768");
        EXPECT_EQ(descriptorsOf(path), 1) << "the next start closes it";
    }
    start(path, 128);
    nextChunk();
    EXPECT_EQ(descriptorsOf(path), 1);
}

TEST_F(DataTransferTest, AStopEndsTheTimeToo)
{
    start(makeFile("song", 1000), 128);
    nextChunk();
    auto* const timer = m_transfer.findChild<QTimer*>();
    EXPECT_TRUE(timer->isActive());
    stop();
    EXPECT_FALSE(timer->isActive());
}

TEST_F(DataTransferTest, AStartBeginsWithNothingOfTheTransferBefore)
{
    const QString path = makeFile("song", 1000);
    start(path, 128);
    nextChunk();
    answer(-1);
    ASSERT_TRUE(status().contains(Status::Error()));
    const CMVoidReply reply = start(path, 128);
    const Status answered = VornHash(reply.value().toHash());
    EXPECT_TRUE(answered.active());
    EXPECT_FALSE(answered.contains(Status::Error()));
    EXPECT_FALSE(answered.contains(Status::BytesSent()));
    EXPECT_FALSE(answered.contains(Status::ChunksSent()));
}

TEST_F(DataTransferTest, AShutdownWhileNothingRunsSaysSoInTheStatus)
{
    m_transfer.shutdown();
    EXPECT_FALSE(status().active());
    EXPECT_EQ(status().error(), "System is shutting down.");
    EXPECT_TRUE(nothingSent());
}

TEST_F(DataTransferTest, AShutdownEndsIt)
{
    start(makeFile("song", 1000), 128);
    nextChunk();
    m_transfer.shutdown();
    EXPECT_FALSE(status().active());
    EXPECT_EQ(status().error(), "System is shutting down.");
    answer(0);
    EXPECT_TRUE(nothingSent());
}

TEST_F(DataTransferTest, ProgressIsLoggedByWholePercents)
{
    const QString path = makeFile("song", 128 * 201);
    m_log.clear();
    start(path, 128);
    for (int i = 0; i < 5; ++i) {
        nextChunk();
        answer(i);
    }
    nextChunk();
    const std::string begin = "Data transfer: '" + path.toStdString() + "': ";
    const Texts expected{"Starting data transfer of '" + path.toStdString() + "' with chunk size 128",
                         begin + "0%", begin + "1%", begin + "2%"};
    EXPECT_EQ(m_log.infos(), expected);
    EXPECT_EQ(m_log.count(log4cplus::TRACE_LOG_LEVEL, begin + "sending chunk 3 / 200, size 128"), 1U);
}

TEST_F(DataTransferTest, TheLastChunkIsLogged)
{
    const QString path = makeFile("song", 200);
    start(path, 128);
    nextChunk();
    m_log.clear();
    answer(0);
    nextChunk();
    const std::string begin = "Data transfer: '" + path.toStdString() + "': ";
    EXPECT_EQ(m_log.infos(), (Texts{begin + "100%", begin + "This was the last chunk"}));
}

TEST_F(DataTransferTest, CallsAreTracedWithWhatTheyGet)
{
    m_log.clear();
    activate(Parameters().setAction(3));
    ASSERT_FALSE(m_log.traces().empty());
    const std::string entry = m_log.traces().front();
    EXPECT_EQ(entry.find("Enter "), 0U) << entry;
    EXPECT_NE(entry.find("on_hostlinkDataTransfer_activated"), std::string::npos) << entry;
    EXPECT_NE(entry.find(R"(: params: {"action":3})"), std::string::npos) << entry;
    m_log.clear();
    m_transfer.sendFileChunk(-7);
    ASSERT_FALSE(m_log.traces().empty());
    EXPECT_NE(m_log.traces().front().find(": statusResponse: -7"), std::string::npos);
}

TEST_F(DataTransferTest, OtherMessagesAreNotTaken)
{
    for (const int id : {0, 1, 6, 7, 8, 0x8009, 0x8006}) {
        EXPECT_FALSE(m_transfer.handleMessage(MessageId(id), {}));
    }
    EXPECT_TRUE(nothingSent());
}

} // namespace
