#include "Conformance/EngineConformanceTest.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace Brantel::Engine {

TEST_P(EngineConformanceTest, AMissingRecordIsNotFound) {
    EXPECT_FALSE(Engine().ReadRecord("track/1").has_value());
}

TEST_P(EngineConformanceTest, AWrittenRecordIsReadWithItsKeyAndAVersion) {
    EXPECT_TRUE(Write("track/1", std::string("a\0b", 3)));
    const std::optional<Record> record = Engine().ReadRecord("track/1");
    ASSERT_TRUE(record.has_value());
    EXPECT_EQ(record->key, "track/1");
    EXPECT_EQ(record->value, std::string("a\0b", 3));
    EXPECT_NE(record->version, 0U);
}

TEST_P(EngineConformanceTest, EachWriteGivesTheRecordAnotherVersion) {
    Write("k", "1");
    const std::uint64_t first = Engine().ReadRecord("k")->version;
    Write("k", "1");
    EXPECT_NE(Engine().ReadRecord("k")->version, first);
}

TEST_P(EngineConformanceTest, ARemovedRecordIsGoneAndRemovingAMissingOneIsFine) {
    Write("k", "1");
    EXPECT_TRUE(Write("k", std::nullopt));
    EXPECT_TRUE(Write("k", std::nullopt));
    EXPECT_EQ(ValueOf("k"), "(none)");
}

TEST_P(EngineConformanceTest, AWriteWithAnotherVersionThanExpectedIsRefusedAndChangesNothing) {
    Write("k", "1");
    const std::uint64_t version = Engine().ReadRecord("k")->version;
    EXPECT_FALSE(Write("k", "2", version + 1000));
    EXPECT_FALSE(Write("k", "2", 0));
    EXPECT_EQ(ValueOf("k"), "1");
    EXPECT_TRUE(Write("k", "2", version));
    EXPECT_EQ(ValueOf("k"), "2");
}

TEST_P(EngineConformanceTest, ExpectingVersionZeroWritesOnlyWhatDoesNotExist) {
    EXPECT_TRUE(Write("k", "1", 0));
    EXPECT_FALSE(Write("k", "2", 0));
    EXPECT_EQ(ValueOf("k"), "1");
}

TEST_P(EngineConformanceTest, ABatchIsCarriedOutWhollyOrNotAtAll) {
    Write("a", "1");
    const std::vector<RecordChange> refused{{"b", "2", std::nullopt}, {"a", "9", 0}};
    EXPECT_FALSE(Engine().WriteRecords(refused));
    EXPECT_EQ(ValueOf("a") + ValueOf("b"), "1(none)");

    const std::vector<RecordChange> accepted{
        {"b", "2", 0}, {"a", std::nullopt, std::nullopt}, {"c", "3", std::nullopt}};
    EXPECT_TRUE(Engine().WriteRecords(accepted));
    EXPECT_EQ(ValueOf("a") + ValueOf("b") + ValueOf("c"), "(none)23");
}

TEST_P(EngineConformanceTest, AScanFindsTheKeysOfItsPrefixInByteOrder) {
    for (const char* key : {"p/2", "p/10", "p", "q", "p0", "p/\xff"}) {
        Write(key, key);
    }
    std::vector<std::string> keys;
    for (const Record& record : Engine().ScanRecords("p/")) {
        keys.push_back(record.key);
        EXPECT_EQ(record.value, record.key);
    }
    EXPECT_EQ(keys, (std::vector<std::string>{"p/10", "p/2", "p/\xff"}));
}

TEST_P(EngineConformanceTest, ARecordOfAMebibyteIsKept) {
    const std::string value(1U << 20U, 'x');
    Write("big", value);
    EXPECT_EQ(ValueOf("big"), value);
}

TEST_P(EngineConformanceTest, RecordsSurviveARestartAndACrash) {
    Write("k", "1");
    harness->Restart();
    EXPECT_EQ(ValueOf("k"), "1");
    Write("k", "2");
    harness->Crash();
    EXPECT_EQ(ValueOf("k"), "2");
}

}  // namespace Brantel::Engine
