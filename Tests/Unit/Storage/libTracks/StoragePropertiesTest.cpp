#include "Unit/Storage/libTracks/StorageTest.h"

#include <gtest/gtest.h>

#include <string>

namespace Brantel::Tracks {

TEST_P(StorageTest, SetPropertiesAreAddedOrReplacedAndOthersLeft) {
    Create(7);
    storage->SetTrackProperties(7, Properties({{"a", "1"}, {"b", "2"}}));
    storage->SetTrackProperties(7, Properties({{"b", "3"}, {"c", std::string("\0", 1)}}));
    EXPECT_EQ(PropertiesOf(7), (Blocks{{"a", "1"}, {"b", "3"}, {"c", std::string("\0", 1)}}));
}

TEST_P(StorageTest, RemovedPropertiesAreGoneAndUnknownKeysIgnored) {
    Create(7);
    storage->SetTrackProperties(7, Properties({{"a", "1"}, {"b", "2"}}));
    storage->RemoveTrackProperties(7, Properties({{"b", "ignored"}, {"unknown", ""}}));
    EXPECT_EQ(PropertiesOf(7), (Blocks{{"a", "1"}}));
}

TEST_P(StorageTest, APropertyWithAnEmptyKeyIsAnErrorAndChangesNothing) {
    Create(7);
    EXPECT_EQ(ErrorOf([&] {
                  storage->SetTrackProperties(7, Properties({{"a", "1"}, {"", "2"}}));
              }),
              "Track 7: a property has an empty key");
    EXPECT_EQ(ErrorOf([&] {
                  storage->RemoveTrackProperties(7, Properties({{"", ""}}));
              }),
              "Track 7: a property has an empty key");
    EXPECT_TRUE(PropertiesOf(7).empty());
}

TEST_P(StorageTest, PropertiesSurviveRestartAndCrash) {
    Create(7);
    SetProperty(7, "a", "1");
    Restart();
    SetProperty(7, "b", "2");
    Crash();
    EXPECT_EQ(PropertiesOf(7), (Blocks{{"a", "1"}, {"b", "2"}}));
}

TEST_P(StorageTest, SettingsAreListedWhenTheyWereSet) {
    Create(7);
    EXPECT_TRUE(PropertiesOf(7).empty());
    SetProperty(7, "storage.retention", "stop");
    SetProperty(7, "storage.durability", "interval:200ms");
    EXPECT_EQ(PropertiesOf(7),
              (Blocks{{"storage.durability", "interval:200ms"}, {"storage.retention", "stop"}}));
}

TEST_P(StorageTest, AnUnknownSettingIsRefused) {
    Create(7);
    EXPECT_EQ(ErrorOf([&] { SetProperty(7, "storage.colour", "red"); }),
              "Track 7: property storage.colour is no setting, known are storage.durability and "
              "storage.retention");
    EXPECT_TRUE(PropertiesOf(7).empty());
}

TEST_P(StorageTest, ABadValueOfASettingIsRefused) {
    Create(7);
    EXPECT_EQ(ErrorOf([&] { SetProperty(7, "storage.retention", "often"); }),
              "Track 7: property storage.retention is often, neither loop nor stop");
    for (const std::string value : {"", "never", "interval", "interval:ms", "interval:0ms",
                                    "interval:5", "interval:5s", "interval:-5ms", "interval:5 ms",
                                    "interval:3600001ms", "interval:99999999999999999999ms"}) {
        EXPECT_EQ(ErrorOf([&] { SetProperty(7, "storage.durability", value); }),
                  "Track 7: property storage.durability is " + value +
                      ", neither always, os nor interval:1ms to interval:3600000ms");
    }
    EXPECT_TRUE(PropertiesOf(7).empty());
}

TEST_P(StorageTest, ARemovedSettingIsBackAtItsDefault) {
    Create(7, 4096);
    SetProperty(7, "storage.retention", "stop");
    storage->RemoveTrackProperties(7, Properties({{"storage.retention", ""}}));
    Fill(7, {1, 2, 3, 4, 5}, 1024 - CostOf(0));
    EXPECT_EQ(CountOf(7, 0, 100), 4);
}

TEST_P(StorageTest, TooLargePropertiesAreRefused) {
    Create(7);
    SetProperty(7, "a", std::string(500000, 'x'));
    const std::string error = ErrorOf([&] { SetProperty(7, "b", std::string(30000, 'x')); });
    EXPECT_EQ(error, "Track 7: properties of 530023 bytes are over the limit of 524288 bytes");
    EXPECT_EQ(PropertiesOf(7).size(), 1U);
}

}  // namespace Brantel::Tracks
