#include "host/FileReceiver.h"

#include <limits>
#include <utility>

#include "platform/hostlink/DataTransferCrc32.h"

namespace
{
constexpr int kMostRefusals = 3;

/// The answer to a chunk is its index, with a sign.
constexpr std::uint32_t kMostIndex = std::numeric_limits<std::int32_t>::max();

bool isAbort(const HostLinkValueMessage& message)
{
    for (int i = 0; i < message.size(); ++i) {
        if (message.getTag(i) == FileTag::Abort) {
            return true;
        }
    }
    return false;
}
} // namespace

struct FileReceiver::Chunk {
    std::optional<std::string> name; ///< the first chunk's
    std::uint32_t index = 0;
    ByteArray data;
    std::optional<std::uint32_t> crc;
    bool last = false;
};

/// Nothing when the message lacks what makes a chunk, or has it in another type.
std::optional<FileReceiver::Chunk> FileReceiver::chunkOf(const HostLinkValueMessage& message)
{
    Chunk chunk;
    bool hasIndex = false;
    bool hasData = false;
    bool ok = true;
    for (int i = 0; i < message.size() && ok; ++i) {
        switch (message.getTag(i)) {
        case FileTag::Name: chunk.name = message.getString(i, &ok); break;
        case FileTag::Index:
            chunk.index = message.getUint32(i, &ok);
            hasIndex = true;
            break;
        case FileTag::Data:
            chunk.data = message.getBin16(i, &ok);
            hasData = true;
            break;
        case FileTag::LastChunk: chunk.last = true; break;
        case FileTag::Crc: chunk.crc = message.getUint32(i, &ok); break;
        default: break;
        }
    }
    const bool isChunk = ok && hasIndex && hasData && chunk.index <= kMostIndex;
    return isChunk ? std::optional(std::move(chunk)) : std::nullopt;
}

FileReceiver::FileReceiver(std::string directory, Observer observer)
    : m_directory(std::move(directory)), m_observer(std::move(observer))
{
    ReceivedFile::removeAbandoned(m_directory);
}

bool FileReceiver::take(const ByteArray& message, HostLinkTime)
{
    if (HostLinkMessage::messageId(message) != MSG_DataTransfer) {
        return false;
    }
    m_message.restart(message);
    if (!isAbort(m_message)) {
        const std::optional<Chunk> chunk = chunkOf(m_message);
        m_pending = chunk ? answerTo(*chunk) : fail("what came is no chunk");
    } else if (m_file) {
        fail("the module has stopped the transfer");
    }
    return true;
}

std::optional<ByteArray> FileReceiver::next(HostLinkTime)
{
    if (!m_pending) {
        return std::nullopt;
    }
    HostLinkValueMessage response(MSG_DataTransferResponse);
    response.addValueInt32(0, *m_pending);
    m_pending.reset();
    return response.serialize();
}

void FileReceiver::sessionBegan()
{
    m_pending.reset();
    m_whole = false;
    if (m_file) {
        fail("a new session began");
    }
}

FileReceiver::Answer FileReceiver::answerTo(const Chunk& chunk)
{
    if (isEmptyRest(chunk)) {
        ++m_expected;
        return static_cast<std::int32_t>(chunk.index);
    }
    const std::string objection = objectionTo(chunk);
    if (!objection.empty()) {
        return fail(objection);
    }
    const auto failure = m_failures.find(chunk.index);
    if (failure == m_failures.end()) {
        return isCrcRight(chunk) ? store(chunk) : askAgain(chunk);
    }
    const Answer answer = failure->second;
    m_failures.erase(failure);
    if (answer == FileAnswer::SendAgain) {
        return askAgain(chunk);
    }
    if (!answer || *answer < 0) {
        return fail(answer ? "answered " + std::to_string(*answer) + " as asked for"
                           : "left unanswered as asked for",
                    answer);
    }
    const Answer right = store(chunk);
    return right == static_cast<std::int32_t>(chunk.index) ? answer : right;
}

/// A file that has shrunk while it was sent ends early, and the chunks that were announced for it come empty.
bool FileReceiver::isEmptyRest(const Chunk& chunk) const
{
    return m_whole && chunk.index == m_expected && !chunk.name && chunk.data.empty();
}

/// Why a chunk cannot be taken; begins the file that it announces.
std::string FileReceiver::objectionTo(const Chunk& chunk)
{
    if (chunk.name) {
        if (m_file) {
            fail("another file begins");
        }
        m_name = *chunk.name;
        m_expected = 0;
        m_size = 0;
        m_refused.reset();
        m_whole = false;
        std::string error;
        m_file = ReceivedFile::create(m_directory, m_name, &error);
        if (!m_file) {
            return error;
        }
    }
    if (!m_file) {
        return "a chunk of no file";
    }
    if (chunk.index != m_expected) {
        return "chunk " + std::to_string(chunk.index) + " came where " + std::to_string(m_expected)
               + " was expected";
    }
    return {};
}

FileReceiver::Answer FileReceiver::fail(const std::string& reason, Answer answer)
{
    m_file.reset(); // who reads the report finds nothing left
    report(Report::Kind::Failed, reason);
    m_name.clear();
    m_size = 0;
    m_expected = 0;
    m_whole = false;
    return answer;
}

FileReceiver::Answer FileReceiver::askAgain(const Chunk& chunk)
{
    m_refusals = m_refused ? m_refusals + 1 : 1;
    if (m_refusals > kMostRefusals) {
        return fail("the CRC of chunk " + std::to_string(chunk.index) + " stays wrong");
    }
    m_refused = chunk.data.size();
    return FileAnswer::SendAgain;
}

/// A last chunk that is sent again begins a whole chunk before the end of the file, so it may be longer than
/// the first time; it ends where that one ended.
FileReceiver::Answer FileReceiver::store(const Chunk& chunk)
{
    const std::size_t size = chunk.data.size();
    const bool isLonger = chunk.last && m_refused && *m_refused < size;
    const std::uint64_t end = m_size + (isLonger ? *m_refused : size);
    std::string error;
    if (end < size) {
        return fail("a chunk is longer than the file");
    }
    if (end > m_largest) {
        return fail("it is larger than " + std::to_string(m_largest) + " bytes");
    }
    if (!m_file->write(end - size, chunk.data.data(), size, &error)) {
        return fail(error);
    }
    m_refused.reset();
    m_size = end;
    ++m_expected;
    if (!chunk.last) {
        report(Report::Kind::Chunk);
    } else if (m_file->keep(m_size, &error)) {
        report(Report::Kind::Received);
        m_file.reset();
        m_whole = true;
    } else {
        return fail(error);
    }
    return static_cast<std::int32_t>(chunk.index);
}

bool FileReceiver::isCrcRight(const Chunk& chunk)
{
    const auto size = static_cast<std::uint32_t>(chunk.data.size());
    return !chunk.crc || *chunk.crc == dataTransferCalcCrc32(nullptr, 0, chunk.data.data(), size);
}

void FileReceiver::report(Report::Kind kind, const std::string& reason)
{
    m_observer({kind, m_name, m_size, m_expected, reason});
}
