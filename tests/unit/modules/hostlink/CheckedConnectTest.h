#pragma once

#include <QObject>

/// A type that no meta-type system knows.
struct UnregisteredParameter {
};

class CheckedConnectSender : public QObject
{
    Q_OBJECT
signals:
    void plain(int number);
    void unregistered(const UnregisteredParameter& parameter);
};

class CheckedConnectReceiver : public QObject
{
    Q_OBJECT
public:
    int m_number = 0;
    int m_calls = 0;

public slots:
    void on_plain(int number) { m_number = number; }
    void on_unregistered(const UnregisteredParameter& /*parameter*/) { ++m_calls; }
};
