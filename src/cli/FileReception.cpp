#include "cli/FileReception.h"

#include <CLI/CLI.hpp>
#include <iostream>

#include "cli/JsonText.h"
#include "cli/Output.h"
#include "platform/hostlink/NumberText.h"

FileReception::Failure FileReception::parseFailure(const std::string& text)
{
    const std::size_t colon = text.find(':');
    const std::string code = colon == std::string::npos ? "" : text.substr(colon + 1);
    const auto chunk = wholeNumber<std::uint32_t>(text.substr(0, colon));
    const FileReceiver::Answer answer = wholeNumber<std::int32_t>(code);
    if (!chunk || !(answer || code == "none")) {
        throw CLI::ValidationError("--fail-chunk",
                                   "'" + text + "' is no I:CODE, the index of a chunk and a number or none");
    }
    return {*chunk, answer};
}

FileReception::FileReception(HostSession& session, const std::string& directory,
                             const std::vector<Failure>& failures, bool json)
    : m_session(session), m_receiver(directory, [this](const FileReceiver::Report& report) { put(report); }),
      m_json(json)
{
    for (const Failure& failure : failures) {
        m_receiver.failChunk(failure.chunk, failure.answer);
    }
    session.addChannel(m_receiver);
}

ExitStatus FileReception::run(std::optional<unsigned> count)
{
    std::cerr << "hostlink: ready for files" << std::endl;
    ByteArray message;
    while (!count || m_ended < *count) {
        const Host::Event event = m_session.receive(&message, HostLinkTime::max());
        if (event == Host::Event::Interrupted) {
            return m_ended < count.value_or(0) ? NoLink : (m_failed > 0 ? Refused : Done);
        }
        if (event == Host::Event::Ended) {
            std::cerr << "hostlink: the module ended the session; waiting for the next one" << std::endl;
        }
    }
    // The reply says that the module has handled the last answer.
    m_session.request(HostSession::emptyRequest(), HostSession::Repeat::Never);
    return m_failed > 0 ? Refused : Done;
}

void FileReception::put(const FileReceiver::Report& report)
{
    if (report.kind == FileReceiver::Report::Kind::Chunk) {
        return putProgress(report);
    }
    m_progress.clear();
    ++m_ended;
    if (report.kind == FileReceiver::Report::Kind::Failed) {
        ++m_failed;
        std::cerr << "hostlink: " << (report.name.empty() ? "a file" : jsonString(report.name))
                  << " was not received: " << report.reason << std::endl;
        return;
    }
    const std::string bytes = std::to_string(report.bytes);
    putLine(m_json ? "{\"file\":" + jsonString(report.name) + ",\"bytes\":" + bytes + '}'
                   : report.name + '\t' + bytes);
}

/// The module does not tell how much is to come, so there is no bar to fill: it runs round.
void FileReception::putProgress(const FileReceiver::Report& report)
{
    const auto now = std::chrono::steady_clock::now();
    if (report.chunks == 1) {
        m_begin = now;
    }
    const double seconds = std::chrono::duration<double>(now - m_begin).count();
    const auto perSecond = static_cast<std::uint64_t>(seconds > 0 ? double(report.bytes) / seconds : 0);
    constexpr std::size_t kPlaces = 20;
    std::string bar(kPlaces, '-');
    bar.replace(report.chunks % (kPlaces - 3), 4, "####");
    m_progress.show(report.name + " [" + bar + "] " + std::to_string(report.bytes) + " bytes, "
                    + std::to_string(perSecond) + " bytes/s");
}
