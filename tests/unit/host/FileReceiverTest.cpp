#include "host/FileReceiver.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <filesystem>
#include <fstream>

#include "platform/hostlink/HostLinkPrinter.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "support/Texts.h"

namespace
{

namespace fs = std::filesystem;
using Kind = FileReceiver::Report::Kind;
using Texts = std::vector<std::string>;

const HostLinkTime kNow{};

class FileReceiverTest : public testing::Test
{
protected:
    FileReceiverTest()
    {
        char pattern[] = "/tmp/receiver-test-XXXXXX";
        m_root = mkdtemp(pattern);
        m_directory = m_root + "/files";
        fs::create_directory(m_directory);
        m_receiver = std::make_unique<FileReceiver>(
            m_directory, [this](const FileReceiver::Report& report) { note(report); });
    }
    ~FileReceiverTest() override { fs::remove_all(m_root); }

    void note(const FileReceiver::Report& report)
    {
        if (report.kind == Kind::Received) {
            m_ends.push_back("received " + report.name + ' ' + std::to_string(report.bytes));
        } else if (report.kind == Kind::Failed) {
            m_ends.push_back("failed " + report.name + ": " + report.reason);
        } else {
            ++m_chunks;
        }
    }

    /// A chunk as the module sends it.
    static HostLinkValueMessage chunk(std::uint32_t index, const std::string& data, bool last = false,
                                      const char* name = nullptr)
    {
        HostLinkValueMessage message(MSG_DataTransfer);
        if (name != nullptr) {
            message.addValueString(0, name);
        }
        message.addValueUint32(1, index);
        message.addValueBin16(2, ByteArray(data.begin(), data.end()));
        if (last) {
            message.addValueNil(3);
        }
        return message;
    }

    static std::uint32_t crcOf(const std::string& data)
    {
        return std::uint32_t(crc32(0, reinterpret_cast<const Bytef*>(data.data()), uInt(data.size())));
    }

    /// The answer to a message, in readable form; empty for none.
    std::string give(const HostLinkValueMessage& message)
    {
        EXPECT_TRUE(m_receiver->take(message.serialize(), kNow));
        const auto answer = m_receiver->next(kNow);
        EXPECT_FALSE(m_receiver->next(kNow)) << "one answer to a chunk";
        return answer ? HostLinkPrinter::printMessage(*answer) : "";
    }

    static std::string answer(int response)
    {
        return "MSG_DataTransferResponse 0=i32:" + std::to_string(response);
    }

    std::string content(const std::string& name) const { return contentOf(m_directory + '/' + name); }

    /// All that is in the directory, and that nothing else is around it.
    Texts files() const
    {
        Texts names;
        for (const auto& entry : fs::directory_iterator(m_directory)) {
            names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        EXPECT_EQ(std::distance(fs::directory_iterator(m_root), fs::directory_iterator()), 1);
        return names;
    }

    std::string m_root;
    std::string m_directory;
    std::unique_ptr<FileReceiver> m_receiver;
    Texts m_ends;
    int m_chunks = 0;
};

TEST_F(FileReceiverTest, AnswersEachChunkWithItsIndexAndKeepsTheWholeFile)
{
    EXPECT_EQ(give(chunk(0, "abcd", false, "song")), answer(0));
    EXPECT_EQ(give(chunk(1, "efgh")), answer(1));
    EXPECT_NE(files(), Texts{"song"}) << "not before it is whole";
    EXPECT_EQ(m_chunks, 2);
    EXPECT_EQ(give(chunk(2, "i", true)), answer(2));
    EXPECT_EQ(files(), Texts{"song"});
    EXPECT_EQ(content("song"), "abcdefghi");
    EXPECT_EQ(m_ends, Texts{"received song 9"});
}

TEST_F(FileReceiverTest, ReplacesAnOlderFileOfTheName)
{
    std::ofstream(m_directory + "/song") << "an older one, which is longer";
    give(chunk(0, "abcd", false, "song"));
    EXPECT_EQ(content("song"), "an older one, which is longer");
    give(chunk(1, "", true));
    EXPECT_EQ(content("song"), "abcd");
}

TEST_F(FileReceiverTest, ALinkAtTheNameIsReplacedNotFollowed)
{
    std::ofstream(m_directory + "/target") << "untouched";
    fs::create_symlink("target", m_directory + "/song");
    give(chunk(0, "abcd", false, "song"));
    give(chunk(1, "", true));
    EXPECT_FALSE(fs::is_symlink(m_directory + "/song"));
    EXPECT_EQ(content("song"), "abcd");
    EXPECT_EQ(content("target"), "untouched");
}

TEST_F(FileReceiverTest, NamesThatAreNoFileNamesAreRefused)
{
    for (const char* name : {"", ".", "..", "/", "a/b", "../song", "/etc/passwd", "song/", "line\nbreak",
                             "\x1B[2J", "tab\t", "\x7F", "\xC2\x80", "a\xC2\x85", "\xC2\x9F"}) {
        EXPECT_EQ(give(chunk(0, "x", true, name)), answer(-1)) << name;
    }
    HostLinkValueMessage zero(MSG_DataTransfer);
    zero.addValueString(0, std::string_view("a\0b", 3));
    zero.addValueUint32(1, 0);
    zero.addValueBin16(2, {});
    EXPECT_EQ(give(zero), answer(-1));
    for (const std::size_t length : {256, 4096, 65535}) { // no file system takes such a name
        const std::string name(length, 'n');
        EXPECT_EQ(give(chunk(0, "x", false, name.c_str())), answer(-1)) << length;
        EXPECT_EQ(m_ends.back(), "failed " + name + ": the announced name is no file name");
    }
    EXPECT_EQ(files(), Texts{});
    EXPECT_EQ(m_ends.front(), "failed : the announced name is no file name");
}

TEST_F(FileReceiverTest, NamesOfUnfinishedPartsAreRefused)
{
    for (const char* name : {".hostlink-1-1.part", ".hostlink-4000000-17.part", ".hostlink--.part"}) {
        EXPECT_EQ(give(chunk(0, "x", true, name)), answer(-1)) << name;
        EXPECT_EQ(m_ends.back(), "failed " + std::string(name) + ": the announced name is no file name");
    }
    EXPECT_EQ(files(), Texts{});
}

TEST_F(FileReceiverTest, NamesThatResembleAPartsAreNamesOfFilesThatStay)
{
    const Texts names{".hostlink-1-1.part.gz", ".hostlink-a.part", "hostlink-1-1.part"};
    for (const std::string& name : names) {
        EXPECT_EQ(give(chunk(0, "x", true, name.c_str())), answer(0)) << name;
    }
    const FileReceiver next(m_directory, [](const FileReceiver::Report&) {});
    EXPECT_EQ(files(), names);
}

TEST_F(FileReceiverTest, OddNamesAreNames)
{
    const std::string longest(255, 'n');
    for (const char* name : {" ", "...", ".hidden", "-rf", "sch\xC3\xB6n", "\xC2\xA0", "\xF0\x9F\x8E\xB5",
                             "\xFF", "a\\b", "%s", "$(id)", longest.c_str()}) {
        EXPECT_EQ(give(chunk(0, "x", true, name)), answer(0)) << name;
        EXPECT_EQ(content(name), "x");
    }
}

TEST_F(FileReceiverTest, ANameThatIsADirectoryEndsIt)
{
    fs::create_directory(m_directory + "/song");
    EXPECT_EQ(give(chunk(0, "x", true, "song")), answer(-1));
    EXPECT_EQ(files(), Texts{"song"}) << "and nothing stays behind";
    EXPECT_EQ(m_ends.size(), 1u);
}

TEST_F(FileReceiverTest, ADirectoryThatIsGoneEndsIt)
{
    fs::remove(m_directory);
    EXPECT_EQ(give(chunk(0, "x", true, "song")), answer(-1));
    EXPECT_EQ(m_ends, Texts{"failed song: " + m_directory + ": No such file or directory"});
}

TEST_F(FileReceiverTest, AChunkOutOfOrderEndsIt)
{
    for (const std::uint32_t index : {0u, 2u, 0xFFFFFFFFu}) {
        give(chunk(0, "abcd", false, "song"));
        EXPECT_EQ(give(chunk(index, "efgh")), answer(-1)) << index;
        EXPECT_EQ(give(chunk(1, "efgh")), answer(-1)) << "the file is given up";
        EXPECT_EQ(files(), Texts{});
    }
    EXPECT_EQ(m_ends[0], "failed song: chunk 0 came where 1 was expected");
    EXPECT_EQ(m_ends[1], "failed : a chunk of no file");
    EXPECT_EQ(give(chunk(1, "x", true, "late")), answer(-1)) << "a name comes with the first chunk";
}

TEST_F(FileReceiverTest, MessagesThatAreNoChunksEndIt)
{
    HostLinkValueMessage noIndex(MSG_DataTransfer);
    noIndex.addValueBin16(2, {1});
    HostLinkValueMessage noData(MSG_DataTransfer);
    noData.addValueUint32(1, 1);
    HostLinkValueMessage wrongType(MSG_DataTransfer);
    wrongType.addValueUint16(1, 1);
    wrongType.addValueBin16(2, {1});
    HostLinkValueMessage wrongCrc(MSG_DataTransfer);
    wrongCrc.addValueUint32(1, 1);
    wrongCrc.addValueBin16(2, {1});
    wrongCrc.addValueUint16(4, 1);
    for (const HostLinkValueMessage& message :
         {noIndex, noData, wrongType, wrongCrc, HostLinkValueMessage(MSG_DataTransfer)}) {
        give(chunk(0, "abcd", false, "song"));
        EXPECT_EQ(give(message), answer(-1));
        EXPECT_EQ(m_ends.back(), "failed song: what came is no chunk");
    }
    EXPECT_EQ(files(), Texts{});
}

TEST_F(FileReceiverTest, TakesChunksWithARightChecksum)
{
    HostLinkValueMessage first = chunk(0, "abcd", false, "song");
    first.addValueUint32(4, crcOf("abcd"));
    EXPECT_EQ(give(first), answer(0));
    HostLinkValueMessage last = chunk(1, "");
    last.addValueUint32(4, 0);
    last.addValueNil(3);
    EXPECT_EQ(give(last), answer(1));
    EXPECT_EQ(content("song"), "abcd");
}

TEST_F(FileReceiverTest, AsksThreeTimesAgainForAChunkWithAWrongChecksum)
{
    HostLinkValueMessage wrong = chunk(0, "abcd", false, "song");
    wrong.addValueUint32(4, crcOf("abcd") ^ 1);
    HostLinkValueMessage wrongAgain = chunk(0, "abcd");
    wrongAgain.addValueUint32(4, 1);
    EXPECT_EQ(give(wrong), answer(-2));
    EXPECT_EQ(give(wrongAgain), answer(-2));
    EXPECT_EQ(give(wrongAgain), answer(-2));
    EXPECT_EQ(give(chunk(0, "abcd")), answer(0)) << "the name stays";
    HostLinkValueMessage second = chunk(1, "efgh");
    second.addValueUint32(4, 1);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(give(second), answer(-2));
    }
    EXPECT_EQ(give(second), answer(-1));
    EXPECT_EQ(m_ends, Texts{"failed song: the CRC of chunk 1 stays wrong"});
}

TEST_F(FileReceiverTest, AShortLastChunkAgainEndsWhereTheFirstOneEnded)
{
    // As the module does: what is sent again begins a whole chunk before the end.
    m_receiver->failChunk(2, -2);
    give(chunk(0, "abcd", false, "song"));
    give(chunk(1, "efgh"));
    EXPECT_EQ(give(chunk(2, "i", true)), answer(-2));
    EXPECT_EQ(give(chunk(2, "fghi", true)), answer(2));
    EXPECT_EQ(content("song"), "abcdefghi");
    EXPECT_EQ(m_ends, Texts{"received song 9"});
}

TEST_F(FileReceiverTest, AChunkAgainThatIsLongerThanTheFileEndsIt)
{
    m_receiver->failChunk(1, -2);
    give(chunk(0, "a", false, "song"));
    EXPECT_EQ(give(chunk(1, "b", true)), answer(-2));
    EXPECT_EQ(give(chunk(1, "xxxx", true)), answer(-1));
    EXPECT_EQ(files(), Texts{});
}

TEST_F(FileReceiverTest, EmptyChunksBehindAFileThatShrankAreAnswered)
{
    give(chunk(0, "abcd", false, "song"));
    EXPECT_EQ(give(chunk(1, "e", true)), answer(1));
    EXPECT_EQ(give(chunk(2, "", true)), answer(2));
    EXPECT_EQ(give(chunk(3, "", true)), answer(3));
    EXPECT_EQ(give(chunk(3, "", true)), answer(-1)) << "out of order";
    EXPECT_EQ(content("song"), "abcde");
    EXPECT_EQ(m_ends.front(), "received song 5");
}

TEST_F(FileReceiverTest, AnAbortDropsTheFileAndIsNotAnswered)
{
    HostLinkValueMessage abort(MSG_DataTransfer);
    abort.addValueNil(5);
    EXPECT_EQ(give(abort), "");
    EXPECT_EQ(m_ends, Texts{}) << "nothing was under way";
    give(chunk(0, "abcd", false, "song"));
    EXPECT_EQ(give(abort), "");
    EXPECT_EQ(m_ends, Texts{"failed song: the module has stopped the transfer"});
    EXPECT_EQ(files(), Texts{});
}

TEST_F(FileReceiverTest, ANewSessionDropsTheFile)
{
    give(chunk(0, "abcd", false, "song"));
    EXPECT_TRUE(m_receiver->take(chunk(1, "efgh").serialize(), kNow));
    m_receiver->sessionBegan();
    EXPECT_FALSE(m_receiver->next(kNow)) << "the answer belongs to the former one";
    EXPECT_EQ(m_ends, Texts{"failed song: a new session began"});
    EXPECT_EQ(files(), Texts{});
    m_receiver->sessionBegan();
    EXPECT_EQ(m_ends.size(), 1u);
}

TEST_F(FileReceiverTest, AnotherFileDropsTheOneUnderWay)
{
    give(chunk(0, "abcd", false, "first"));
    EXPECT_EQ(give(chunk(0, "x", true, "second")), answer(0));
    EXPECT_EQ(m_ends, (Texts{"failed first: another file begins", "received second 1"}));
    EXPECT_EQ(files(), Texts{"second"});
}

TEST_F(FileReceiverTest, ItsEndLeavesNothingHalfBehind)
{
    give(chunk(0, "abcd", false, "song"));
    EXPECT_EQ(files().size(), 1u);
    m_receiver.reset();
    EXPECT_EQ(files(), Texts{});
}

TEST_F(FileReceiverTest, WhatAKilledOneHasLeftIsRemovedByTheNext)
{
    const Texts others{".hostlink-1-1.part.gz", ".hostlink-a.part", ".hostlink-.part", "hostlink-1-1.part"};
    for (const std::string& name : others) {
        std::ofstream(m_directory + '/' + name) << "half of a song";
    }
    std::ofstream(m_directory + "/.hostlink-1-1.part") << "half of a song";
    std::ofstream(m_directory + "/.hostlink-4000000-17.part");
    fs::create_directory(m_directory + "/.hostlink-2-2.part");
    fs::create_symlink(m_directory + "/hostlink-1-1.part", m_directory + "/.hostlink-3-3.part");
    const FileReceiver next(m_directory, [](const FileReceiver::Report&) {});
    Texts left = others;
    left.insert(left.end(), {".hostlink-2-2.part", ".hostlink-3-3.part"});
    std::sort(left.begin(), left.end());
    EXPECT_EQ(files(), left);
}

TEST_F(FileReceiverTest, WhatAnotherOneStillWritesStays)
{
    give(chunk(0, "abcd", false, "song"));
    const FileReceiver another(m_directory, [](const FileReceiver::Report&) {});
    give(chunk(1, "e", true));
    EXPECT_EQ(content("song"), "abcde");
    EXPECT_EQ(files(), Texts{"song"});
}

TEST_F(FileReceiverTest, AnswersAsAskedForOnce)
{
    m_receiver->failChunk(1, 7);
    give(chunk(0, "abcd", false, "song"));
    EXPECT_EQ(give(chunk(1, "efgh")), answer(7)) << "in place of its index; the chunk is taken";
    EXPECT_EQ(give(chunk(2, "", true)), answer(2));
    EXPECT_EQ(content("song"), "abcdefgh");

    m_ends.clear();
    m_receiver->failChunk(0, -1);
    m_receiver->failChunk(0, -3);
    m_receiver->failChunk(0, std::nullopt);
    EXPECT_EQ(give(chunk(0, "abcd", false, "song")), answer(-1));
    EXPECT_EQ(give(chunk(0, "abcd", false, "song")), answer(-3));
    EXPECT_EQ(give(chunk(0, "abcd", false, "song")), "");
    EXPECT_EQ(m_ends, (Texts{"failed song: answered -1 as asked for", "failed song: answered -3 as asked for",
                             "failed song: left unanswered as asked for"}));
    EXPECT_EQ(give(chunk(0, "abcd", false, "song")), answer(0));
}

TEST_F(FileReceiverTest, WhoIsToldOfAFailureFindsNothingLeft)
{
    std::optional<Texts> left;
    FileReceiver receiver(m_directory, [&](const FileReceiver::Report& report) {
        if (report.kind == Kind::Failed) {
            left = files();
        }
    });
    EXPECT_TRUE(receiver.take(chunk(0, "12345", false, "song").serialize(), kNow));
    EXPECT_EQ(files().size(), 1U);
    receiver.sessionBegan();
    EXPECT_EQ(left, Texts{});
}

TEST_F(FileReceiverTest, AFileThatIsTooLargeEndsItBeforeItFillsTheDisk)
{
    m_receiver->setLargest(10);
    EXPECT_EQ(give(chunk(0, "12345", false, "song")), answer(0));
    EXPECT_EQ(give(chunk(1, "67890", true)), answer(1));
    EXPECT_EQ(give(chunk(0, "12345", false, "other")), answer(0));
    EXPECT_EQ(give(chunk(1, "678901", true)), answer(-1));
    const Texts expected{"received song 10", "failed other: it is larger than 10 bytes"};
    EXPECT_EQ(m_ends, expected);
    EXPECT_EQ(files(), Texts{"song"});
}

TEST_F(FileReceiverTest, AFullDiskEndsIt)
{
    FileReceiver receiver(m_directory, [this](const FileReceiver::Report& report) { note(report); });
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const auto handler = signal(SIGXFSZ, SIG_IGN);
    const rlimit small{100, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    EXPECT_TRUE(receiver.take(chunk(0, std::string(200, 'x'), false, "song").serialize(), kNow));
    setrlimit(RLIMIT_FSIZE, &before);
    signal(SIGXFSZ, handler);
    EXPECT_EQ(HostLinkPrinter::printMessage(receiver.next(kNow).value_or(ByteArray())), answer(-1));
    EXPECT_EQ(m_ends, Texts{"failed song: cannot write: File too large"});
    EXPECT_EQ(files(), Texts{});
}

TEST_F(FileReceiverTest, OtherMessagesAreNotTaken)
{
    for (const int id : {0x0001, 0x0008, 0x8007, 0x8009}) {
        EXPECT_FALSE(m_receiver->take(HostLinkValueMessage(MessageId(id)).serialize(), kNow));
    }
    EXPECT_FALSE(m_receiver->take({}, kNow));
    EXPECT_FALSE(m_receiver->next(kNow));
}

} // namespace
