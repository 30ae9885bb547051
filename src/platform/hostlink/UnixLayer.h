#pragma once

#include "platform/hostlink/SocketLayer.h"
#include "platform/hostlink/UnixSocket.h"

/// An emulated line over a Unix socket. Property Device is the socket's path.
///
/// The listening side creates the socket file for its owner only and removes it when it closes. A file
/// that a killed process left behind is taken over; one on which somebody still listens is not.
class UnixLayer : public SocketLayer
{
public:
    explicit UnixLayer(const Properties& properties);
    ~UnixLayer() override { close(); }

    std::size_t batchSize() const override { return 16 * 1024; }

protected:
    Attempt listen() override;
    Attempt connect() override;
    bool prepare(int socket) override;
    void unlisten() override;

private:
    Attempt noAddress() const;

    const std::string m_path;
    UnixSocketFile m_file;
};
