#include "CheckedConnectTest.h"

#include <gtest/gtest.h>

#include <QThread>

#include "modules/hostlink/CheckedConnect.h"
#include "support/WaitFor.h"

namespace
{

using Sender = CheckedConnectSender;
using Receiver = CheckedConnectReceiver;

TEST(CheckedConnectTest, ConnectsWithinAThreadWhateverTheParametersAre)
{
    Sender sender;
    Receiver receiver;
    connectChecked(&sender, &Sender::unregistered, &receiver, &Receiver::on_unregistered);
    emit sender.unregistered({});
    EXPECT_EQ(receiver.m_calls, 1);
}

TEST(CheckedConnectTest, ConnectsQueuedWithRegisteredParameters)
{
    Sender sender;
    Receiver receiver;
    connectChecked(&sender, &Sender::plain, &receiver, &Receiver::on_plain, Qt::QueuedConnection);
    emit sender.plain(5);
    EXPECT_TRUE(waitFor([&] { return receiver.m_number == 5; }));
}

TEST(CheckedConnectDeathTest, AnUnregisteredParameterOfAQueuedConnectionIsFatal)
{
    Sender sender;
    Receiver receiver;
    EXPECT_DEATH(connectChecked(&sender, &Sender::unregistered, &receiver, &Receiver::on_unregistered,
                                Qt::QueuedConnection),
                 "verifyConnectionSignalParameters\\(sender, signal, receiver, type\\)");
}

TEST(CheckedConnectTest, BetweenThreadsTheParametersAreVerified)
{
    Sender sender;
    Receiver receiver;
    QThread thread;
    receiver.moveToThread(&thread);
    EXPECT_FALSE(
        verifyConnectionSignalParameters(&sender, &Sender::unregistered, &receiver, Qt::AutoConnection));
    EXPECT_TRUE(verifyConnectionSignalParameters(&sender, &Sender::plain, &receiver, Qt::AutoConnection));
}

TEST(CheckedConnectDeathTest, AConnectionThatIsNotMadeIsFatal)
{
    const Sender* none = nullptr;
    Receiver receiver;
    EXPECT_DEATH(connectChecked(none, &Sender::plain, &receiver, &Receiver::on_plain, Qt::DirectConnection),
                 "connection");
    EXPECT_DEATH(connectChecked(none, &Sender::plain, &receiver, &Receiver::on_plain), "connection");
}

} // namespace
