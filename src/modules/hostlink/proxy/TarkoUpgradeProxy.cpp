#include "modules/hostlink/proxy/TarkoUpgradeProxy.h"

#include <QFile>
#include <QProcess>
#include <QTimer>
#include <chrono>

#include "modules/hostlink/Log.h"
#include "platform/hostlink/HostLinkValueMessage.h"
#include "platform/sdk/CMWorker.h"
#include "platform/sdk/Paths.h"

namespace
{
using namespace std::chrono_literals;

// Long enough for the answer to leave before the module goes down.
constexpr auto kRestartDelay = 500ms;

// Asks the next start to run the host's upgrade.
constexpr const char* kHostUpgradeFlagFile = "/hostUpgradeRequestFlag";

CMVoidReply requestRestart()
{
    VornPowerManagerTarget target;
    target.setTarget(VornPowerManagerTargets::Restart).setReason(VornPowerManagerReasons::Number3);
    CMVoidReply reply(new CMReplyData<QVariant>);
    CMRoot()->invoke(VornPowerManagerTargetRequestPath(), target, reply);
    return reply;
}
} // namespace

void TarkoUpgradeProxy::setValue(State state, const HostLinkValueMessage& message, int index,
                                 HostLinkValueMessage* reply)
{
    bool ok = false;
    const int value = message.getUint8(index, &ok);
    LOG4CPLUS_DEBUG(hostLinkLogger,
                    "TarkoUpgradeProxy state: 0x" << std::hex << state << " setValue: 0x" << value);
    if (state != STA_HostUpgradeStatus) {
        LOG4CPLUS_ERROR(hostLinkLogger, "[TarkoUpgradeProxy] Unknown state: " << state);
        reply->addValueNil(state);
        return;
    }
    LOG4CPLUS_DEBUG(hostLinkLogger, "TarkoDeviceUpgradeStatus received");
    if (!ok) {
        LOG4CPLUS_ERROR(hostLinkLogger, "TarkoDeviceUpgradeStatus received invalid value encoding!");
        return;
    }
    switch (value) {
    case VornKestalPrimeHostUpgradeStatus::ReadyToReceiveData:
        LOG4CPLUS_DEBUG(hostLinkLogger, "TarkoDeviceUpgradeStatus::ReadyToReceiveData received, restarting!");
        QTimer::singleShot(kRestartDelay, Qt::PreciseTimer, this,
                           &TarkoUpgradeProxy::on_tarkoHostUpgradeRequested);
        break;
    case VornKestalPrimeHostUpgradeStatus::StartOmbrelUsbUpgrade:
        LOG4CPLUS_DEBUG(hostLinkLogger,
                        "TarkoDeviceUpgradeStatus::StartOmbrelUsbUpgrade received, restarting!");
        QTimer::singleShot(kRestartDelay, Qt::PreciseTimer, this,
                           &TarkoUpgradeProxy::on_ombrelUsbUpgradeRequested);
        break;
    default:
        LOG4CPLUS_ERROR(hostLinkLogger, "Invalid or unhandled value received: 0x" << std::hex << value);
        break;
    }
}

void TarkoUpgradeProxy::getValue(State state, HostLinkValueMessage* reply)
{
    LOG4CPLUS_ERROR(hostLinkLogger, "[TarkoUpgradeProxy] Unknown state: " << state);
    reply->addValueNil(state);
}

void TarkoUpgradeProxy::on_ombrelUsbUpgradeRequested()
{
    QProcess::execute("fw_setenv", {"usb_update_req", "1"});
    QProcess::execute("sfuflags", {"-f", "update", "-v", "1"});
    requestRestart().wait();
}

void TarkoUpgradeProxy::on_tarkoHostUpgradeRequested()
{
    QFile flag(kHostUpgradeFlagFile);
    if (!flag.open(QIODevice::ReadWrite | QIODevice::Text)) {
        LOG4CPLUS_ERROR(hostLinkLogger, "Unable to create host upgrade request flag file!");
        return;
    }
    flag.close();
    LOG4CPLUS_INFO(hostLinkLogger,
                   "Created flag file to start requested host upgrade. Now restarting vorn...");
    requestRestart();
}
