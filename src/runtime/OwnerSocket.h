#pragma once

#include <QString>

/// A listening Unix socket that only its owner may open. A lock beside it (PATH.lock), which ends with
/// the process, tells a live socket from the file that a killed process left behind.
class OwnerSocket
{
public:
    OwnerSocket() = default;
    ~OwnerSocket();

    OwnerSocket(const OwnerSocket&) = delete;
    OwnerSocket& operator=(const OwnerSocket&) = delete;

    /// Listens at `path`, taking over a stale socket file. Its folder must be one in which nobody else can
    /// put another file at that name. Without success *error says why.
    bool listen(const QString& path, QString* error);

    /// The listening descriptor, which does not block; -1 before listen().
    int descriptor() const { return m_descriptor; }

private:
    bool checkFolder(QString* error) const;
    bool lock(QString* error);
    bool removeStaleSocket(QString* error) const;
    bool bind(QString* error);

    QByteArray m_path;
    int m_lock = -1;
    int m_descriptor = -1;
};
