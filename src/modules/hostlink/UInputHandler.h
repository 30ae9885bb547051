#pragma once

#include <QObject>

#include "modules/hostlink/HostLinkMessageHandler.h"
#include "modules/hostlink/UInputSystem.h"

/// Makes key messages of the host key events of a virtual keyboard, the input device "hostlink". Without
/// the kernel's uinput interface keys are taken and dropped.
class UInputHandler : public QObject, public HostLinkMessageHandler
{
    Q_OBJECT
public:
    /// Registers the device.
    explicit UInputHandler(QObject* parent, UInputSystem& system = UInputSystem::kernel());
    ~UInputHandler() override;

    /// Takes MSG_InputEvent: each value is a Linux key code under its action. The keys of one message are
    /// one frame of events.
    bool handleMessage(MessageId id, const ByteArray& bytes) override;

    /// Removes the device.
    void shutdown() override;

    /// Writes one key event: a press for action 1, a release for any other. False when it was not written,
    /// true without a device too.
    bool inputEvent(int action, int key);

    /// Closes the frame of the events written before.
    void inputEventSyn();

private:
    void enableKeys();
    void writeDescription();
    bool writeEvent(int type, int code, int value);

    UInputSystem& m_system;
    int m_device = -1; ///< descriptor of the open uinput device, -1 for none
};
