#pragma once

#include <QMetaMethod>
#include <QObject>
#include <QThread>

/// True when a connection of this type can carry the signal's parameters: those of a queued call, between
/// threads too, must all be registered with the meta-type system.
template <typename Sender, typename Signal>
bool verifyConnectionSignalParameters(const Sender* sender, Signal signal, const QObject* receiver,
                                      Qt::ConnectionType type)
{
    if (sender == nullptr || receiver == nullptr) {
        return true; // without a thread of its own; the connection fails by itself
    }
    const bool queued = type == Qt::QueuedConnection
                        || (type == Qt::AutoConnection && sender->thread() != receiver->thread());
    if (!queued) {
        return true;
    }
    const QMetaMethod method = QMetaMethod::fromSignal(signal);
    for (int i = 0; i < method.parameterCount(); ++i) {
        if (method.parameterType(i) == QMetaType::UnknownType) {
            return false;
        }
    }
    return true;
}

/// Connects a signal to a slot of a class. A connection that would not work ends the process with a message:
/// without its notifications the caller would fall silent unnoticed.
template <typename Sender, typename Signal, typename Receiver, typename Slot>
void connectChecked(const Sender* sender, Signal signal, const Receiver* receiver, Slot slot,
                    Qt::ConnectionType type = Qt::AutoConnection)
{
    if (!verifyConnectionSignalParameters(sender, signal, receiver, type)) {
        qFatal("verifyConnectionSignalParameters(sender, signal, receiver, type)");
    }
    const QMetaObject::Connection connection = QObject::connect(sender, signal, receiver, slot, type);
    if (!connection) {
        qFatal("connection");
    }
}
