#include "Support/ForgetfulEngine.h"

#include <libTracks/Storage.h>
#include <libTracks/TrackRecord.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace Brantel::Tracks {
namespace {

class TrackRecordTest : public testing::Test {
  protected:
    TrackRecordTest() {
        record.phase = TrackRecord::Phase::Ready;
        record.capacity = 100'000;
        record.segmentSize = 12'288;
        record.ringFront = 7;
        record.heldRuns = {{3, 1, 5}, {3, 6, 7}};
    }

    // Why its bytes are refused; "" when they are not.
    static std::string RefusalOf(const std::string& bytes) {
        try {
            TrackRecord::Decode(bytes);
        } catch (const std::runtime_error& refusal) {
            return refusal.what();
        }
        return "";
    }
    // Why a store with this record under that key is refused; "" when it is not.
    std::string RefusalOfStore(const std::string& key) const {
        Engine::ForgetfulEngine engine(std::uint64_t{1} << 20U);
        const std::vector<Engine::RecordChange> changes{{key, record.Encode()}};
        engine.WriteRecords(changes);
        try {
            const Storage storage(engine, {});
        } catch (const std::runtime_error& refusal) {
            return refusal.what();
        }
        return "";
    }

    TrackRecord record;
};

TEST_F(TrackRecordTest, IsReadAsItWasWritten) {
    const TrackRecord read = TrackRecord::Decode(record.Encode());
    EXPECT_EQ(record.Encode(), read.Encode());
    EXPECT_EQ(7U, read.ringFront);
    EXPECT_EQ(7U, read.heldRuns.at(1).end);
}

TEST_F(TrackRecordTest, OneThatIsCutShortIsRefusedAtEveryByte) {
    const std::string bytes = record.Encode();
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        EXPECT_NE("", RefusalOf(bytes.substr(0, size))) << size;
    }
}

TEST_F(TrackRecordTest, OneWithBytesBehindItsEndIsRefused) {
    EXPECT_EQ("a track record with bytes behind its end", RefusalOf(record.Encode() + "x"));
}

TEST_F(TrackRecordTest, OneInAnUnknownPhaseIsRefused) {
    for (const int phase : {0, 4, 255}) {
        record.phase = static_cast<TrackRecord::Phase>(phase);
        EXPECT_EQ("a track record with the unknown phase " + std::to_string(phase),
                  RefusalOf(record.Encode()));
    }
}

TEST_F(TrackRecordTest, OneWithSegmentsThatCanNotExistIsRefused) {
    for (const std::uint32_t size : {0U, 4096U, 8192U, 12'289U, 0x10001000U, 0xFFFFFFFFU}) {
        record.segmentSize = size;
        EXPECT_EQ("a track record with segments of " + std::to_string(size) + " bytes",
                  RefusalOf(record.Encode()));
    }
}

TEST_F(TrackRecordTest, OneWithAnEmptyRunOfHeldEntriesIsRefused) {
    record.heldRuns.push_back({4, 2, 2});
    EXPECT_EQ("a track record with held entries from 2 to 2", RefusalOf(record.Encode()));
}

TEST_F(TrackRecordTest, OneWhoseKeyHasNoNumberKeepsTheStoreClosed) {
    for (const std::string key : {"track/", "track/7x", "track/99999999999999999999"}) {
        EXPECT_EQ("The store has a record " + key + ", which has no number", RefusalOfStore(key));
    }
}

TEST_F(TrackRecordTest, OneThatCanNotBeReadKeepsTheStoreClosedAndIsNamed) {
    record.segmentSize = 0;
    EXPECT_EQ("The store's record track/7 can't be read: a track record with segments of 0 bytes",
              RefusalOfStore("track/7"));
}

}  // namespace
}  // namespace Brantel::Tracks
