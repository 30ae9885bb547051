#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "host/HostChannel.h"
#include "host/ReceivedFile.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "vocabulary/Channels.h"

/// The host's side of data transfer: takes the files that the module pushes and puts each into a directory,
/// once it is whole. Each chunk is answered with its index; with -1, which ends the transfer, where the host
/// cannot take it; with -2, which asks for it again, where its CRC is wrong.
class FileReceiver : public HostChannel
{
public:
    /// What is told of a file: each chunk; then its end, received or failed.
    struct Report {
        enum class Kind { Chunk, Received, Failed };

        Kind kind;
        std::string name;         ///< empty where none was announced
        std::uint64_t bytes = 0;  ///< received of it
        std::uint32_t chunks = 0; ///< and in how many chunks
        std::string reason;       ///< of a failure
    };

    using Observer = std::function<void(const Report&)>;

    /// Removes from the directory what receivers have left there that were killed.
    FileReceiver(std::string directory, Observer observer);

    static constexpr std::uint64_t kUsualLargest = 1 << 30;

    /// A file of more bytes is not taken.
    void setLargest(std::uint64_t bytes) { m_largest = bytes; }

    /// An answer in place of the right one, or none.
    using Answer = std::optional<std::int32_t>;

    /// Gives a chunk with this index the answer, once. It takes effect as the module understands it: a chunk
    /// answered with -2 is expected again, another negative answer or none ends the transfer.
    void failChunk(std::uint32_t index, Answer answer) { m_failures.emplace(index, answer); }

    bool take(const ByteArray& message, HostLinkTime now) override;
    std::optional<ByteArray> next(HostLinkTime now) override;
    void sessionBegan() override;

private:
    struct Chunk;

    static std::optional<Chunk> chunkOf(const HostLinkValueMessage& message);
    Answer answerTo(const Chunk& chunk);
    std::string objectionTo(const Chunk& chunk);
    bool isEmptyRest(const Chunk& chunk) const;
    Answer fail(const std::string& reason, Answer answer = FileAnswer::BlockFailed);
    Answer askAgain(const Chunk& chunk);
    Answer store(const Chunk& chunk);
    static bool isCrcRight(const Chunk& chunk);
    void report(Report::Kind kind, const std::string& reason = {});

    const std::string m_directory;
    const Observer m_observer;
    std::uint64_t m_largest = kUsualLargest;
    std::multimap<std::uint32_t, Answer> m_failures;

    HostLinkValueMessage m_message{MSG_DataTransfer}; ///< the one that came last

    std::unique_ptr<ReceivedFile> m_file;  ///< while a file is under way
    std::string m_name;                    ///< as announced
    std::uint32_t m_expected = 0;          ///< index of the next chunk
    std::uint64_t m_size = 0;              ///< bytes of the chunks before it
    std::optional<std::size_t> m_refused;  ///< the next chunk was refused when it had so many bytes
    int m_refusals = 0;                    ///< of it
    bool m_whole = false;                  ///< the last file is kept; empty chunks may still follow
    std::optional<std::int32_t> m_pending; ///< the answer to be sent
};
