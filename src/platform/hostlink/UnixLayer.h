#pragma once

#include <sys/types.h>

#include "platform/hostlink/SocketLayer.h"

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
    const std::string m_path;
    dev_t m_fileDevice = 0; ///< with m_fileNumber: the socket file that this layer made
    ino_t m_fileNumber = 0; ///< 0 for none
};
