#include "platform/hostlink/FaultSettings.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <set>

using namespace std::chrono_literals;

namespace
{

FaultSettings parsed(const std::string& text)
{
    std::string error;
    const std::optional<FaultSettings> settings = FaultSettings::parse(text, &error);
    EXPECT_TRUE(settings) << text << ": " << error;
    return settings.value_or(FaultSettings{});
}

std::string errorOf(const std::string& text)
{
    std::string error;
    EXPECT_FALSE(FaultSettings::parse(text, &error)) << text;
    return error;
}

TEST(FaultSettings, NothingGivenIsALineWithoutFaults)
{
    const FaultSettings settings = parsed("");
    for (const FaultSettings::Direction& each : {settings.in, settings.out}) {
        EXPECT_EQ(each.drop + each.flip + each.duplicate + each.insert + each.split + each.merge, 0);
        EXPECT_EQ(each.delay, 0ms);
        EXPECT_EQ(each.bytesPerSecond, 0U);
        EXPECT_EQ(each.cuts.interval, 0ms);
    }
    EXPECT_EQ(settings.cuts.interval, 0ms);
}

TEST(FaultSettings, ANameAloneIsForBothDirections)
{
    const FaultSettings settings =
        parsed("drop=0.001&flip=0.0001&dup=1e-5&insert=0.5&burst=40&split=1&merge=0"
               "&delay=2.5&rate=11520&cut=10&outage=20&seed=4294967295");
    for (const FaultSettings::Direction& each : {settings.in, settings.out}) {
        EXPECT_EQ(each.drop, 0.001);
        EXPECT_EQ(each.flip, 0.0001);
        EXPECT_EQ(each.duplicate, 0.00001);
        EXPECT_EQ(each.insert, 0.5);
        EXPECT_EQ(each.burst, 40U);
        EXPECT_EQ(each.split, 1);
        EXPECT_EQ(each.merge, 0);
        EXPECT_EQ(each.delay, 2500us);
        EXPECT_EQ(each.bytesPerSecond, 11520U);
        EXPECT_EQ(each.cuts.longest, 20ms);
    }
    EXPECT_EQ(settings.seed, 4294967295U);
}

TEST(FaultSettings, ACutAloneIsOfTheLineAndNotOfItsDirections)
{
    const FaultSettings settings = parsed("cut=10&outage=20");
    EXPECT_EQ(settings.cuts.interval, 10s);
    EXPECT_EQ(settings.cuts.longest, 20ms);
    EXPECT_EQ(settings.in.cuts.interval, 0s);
    EXPECT_EQ(settings.out.cuts.interval, 0s);
    EXPECT_EQ(parsed("cut.in=3").in.cuts.interval, 3s);
    EXPECT_EQ(parsed("cut.in=3").out.cuts.interval, 0s);
    EXPECT_EQ(parsed("cut.in=3").cuts.interval, 0s);
    EXPECT_EQ(parsed("cut.out=0.001").out.cuts.interval, 1ms);
}

TEST(FaultSettings, WhatIsForOneDirectionGoesBeforeWhatIsForBothInAnyOrder)
{
    for (const char* text : {"drop.in=0.5&drop=0.1", "drop=0.1&drop.in=0.5"}) {
        EXPECT_EQ(parsed(text).in.drop, 0.5);
        EXPECT_EQ(parsed(text).out.drop, 0.1);
    }
    EXPECT_EQ(parsed("rate.out=100").in.bytesPerSecond, 0U);
    EXPECT_EQ(parsed("rate.out=100").out.bytesPerSecond, 100U);
}

TEST(FaultSettings, EveryNameIsReadAndNoneIsThereTwice)
{
    const std::vector<std::string> names = FaultSettings::names();
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), names.size());
    EXPECT_EQ(names.size(), 11U * 3 + 1);
    for (const std::string& name : names) {
        parsed(name + "=1");
    }
}

TEST(FaultSettings, EveryNameStandsInTheDocuments)
{
    std::ifstream document(HOSTLINK_SOURCE_DIR "/docs/architecture.md");
    const std::string text{std::istreambuf_iterator<char>(document), {}};
    for (const std::string& name : FaultSettings::names()) {
        EXPECT_TRUE(name.find('.') != std::string::npos
                    || text.find("\n| `" + name + "` |") != std::string::npos)
            << name;
    }
}

TEST(FaultSettings, AValueThatCannotBeIsAnsweredWithWhatCan)
{
    EXPECT_EQ(errorOf("drop=2"), "drop is a probability per byte, a number from 0 to 1, not '2'");
    EXPECT_EQ(errorOf("flip.in=-0.1"), "flip.in is a probability per byte, a number from 0 to 1, not '-0.1'");
    EXPECT_EQ(errorOf("rate=0"), "rate is bytes per second, a whole number from 1 to 1000000000, not '0'");
    EXPECT_EQ(errorOf("rate=1.5"),
              "rate is bytes per second, a whole number from 1 to 1000000000, not '1.5'");
    EXPECT_EQ(errorOf("cut=0"), "cut is seconds between cuts, a number from 0.001 to 1000000, not '0'");
    EXPECT_EQ(errorOf("seed=-1"), "seed is what all chance comes from, a whole number from 0 to 4294967295, "
                                  "not '-1'");
    for (const char* value : {"", " 1", "1 ", "one", "nan", "inf", "-inf", "0x1", "0,5", "1e999", "+1"}) {
        for (const std::string& name : FaultSettings::names()) {
            const std::string text = errorOf(name + "=" + value);
            EXPECT_EQ(text.find(name + " is "), 0U) << text;
        }
    }
    EXPECT_NE(errorOf("delay").find("not ''"), std::string::npos);
    EXPECT_NE(errorOf("delay=60001").find("from 0 to 60000"), std::string::npos);
}

TEST(FaultSettings, UnknownAndRepeatedNamesAreErrors)
{
    for (const char* name : {"drip", "drop.on", "drop.", "seed.in", "", "Drop", "drop.in.in"}) {
        EXPECT_EQ(errorOf(std::string(name) + "=1"), "'" + std::string(name) + "' is no fault of a line");
    }
    EXPECT_EQ(errorOf("drop=0&drop=0"), "drop is given twice");
    EXPECT_EQ(errorOf("drop.in=0&drop.in=0"), "drop.in is given twice");
    EXPECT_EQ(errorOf("&drop=0"), "'' is no fault of a line");
}

} // namespace
