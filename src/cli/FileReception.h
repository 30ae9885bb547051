#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "cli/Commands.h"
#include "cli/ProgressLine.h"
#include "host/FileReceiver.h"
#include "host/HostSession.h"

/// Takes the files that the module pushes and prints each: its name and its size.
class FileReception
{
public:
    /// An answer to give to a chunk, once.
    struct Failure {
        std::uint32_t chunk = 0;
        FileReceiver::Answer answer;
    };

    /// "I:CODE", where CODE is a number, or none for no answer. Throws CLI::ValidationError.
    static Failure parseFailure(const std::string& text);

    FileReception(HostSession& session, const std::string& directory, const std::vector<Failure>& failures,
                  bool json);

    /// A file of more bytes is not taken.
    void setLargest(std::uint64_t bytes) { m_receiver.setLargest(bytes); }

    /// Needs an open session. Ends after `count` transfers, whole or failed, or with an interrupt. Refused
    /// when one failed, NoLink when there were too few.
    ExitStatus run(std::optional<unsigned> count);

private:
    void put(const FileReceiver::Report& report);
    void putProgress(const FileReceiver::Report& report);

    HostSession& m_session;
    FileReceiver m_receiver;
    const bool m_json;
    ProgressLine m_progress;
    std::chrono::steady_clock::time_point m_begin{}; ///< of the file under way
    unsigned m_ended = 0;
    unsigned m_failed = 0;
};
