#include <gtest/gtest.h>

#include "platform/sdk/VornEnums.h"

TEST(Enums, PrintTheirName)
{
    EXPECT_EQ(
        VornKestalPrimeHostUpgradeStatus::toString(VornKestalPrimeHostUpgradeStatus::ReadyToReceiveData),
        "ReadyToReceiveData");
    EXPECT_EQ(VornHostLinkdInputStateType::toString(VornHostLinkdInputStateType::Locked), "Locked");
}

TEST(Enums, PrintAnUnknownNumberAsItself)
{
    EXPECT_EQ(VornKestalPrimeRegion::toString(VornKestalPrimeRegion::Enum(255)), "255");
    EXPECT_EQ(VornKestalPrimeDacFilter::toString(VornKestalPrimeDacFilter::Enum(-7)), "-7");
}

TEST(Enums, KeepTheNumbersThatTravel)
{
    EXPECT_EQ(VornKestalPrimeSomUpgradeStatus::Available, 0);
    EXPECT_EQ(VornKestalPrimeSomUpgradeStatus::InProgress, 4);
    EXPECT_EQ(VornKestalPrimeHostUpgradeStatus::ReadyToReceiveData, 0);
    EXPECT_EQ(VornKestalPrimeHostUpgradeStatus::StartOmbrelUsbUpgrade, 8);
    EXPECT_EQ(VornPermission::Number9999, 9999);
    EXPECT_EQ(VornPlayerVolumeChangeEventType::Number2, 2);
    EXPECT_EQ(VornPowerManagerTargets::Restart, 3);
    EXPECT_EQ(VornPowerManagerTargets::Shutdown, 4);
}
