#include "Support/EngineList.h"
#include "Unit/Storage/libTracks/StorageTest.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace Brantel::Tracks {

namespace {

using Type = Protocol::WorkerInfo;

}  // namespace

class StorageWorkersTest : public StorageTest {
  protected:
    StorageOptions MakeOptions() override {
        StorageOptions options;
        options.clock = [this] { return now; };
        options.workersLimit = 3;
        return options;
    }
    std::vector<std::uint64_t> ListWorkers() {
        Protocol::Ids ids;
        Protocol::Ids trackIds;
        storage->GetActiveWorkers(ids, trackIds);
        EXPECT_EQ(ids.ids_size(), trackIds.ids_size());
        return {ids.ids().begin(), ids.ids().end()};
    }
    Protocol::WorkerInfo InfoOfWorker(std::uint64_t id) {
        Protocol::Ids ids;
        Protocol::WorkerInfos infos;
        ids.add_ids(id);
        storage->GetWorkerInfos(ids, infos);
        return infos.infos(0);
    }

    std::chrono::steady_clock::time_point now;
};

INSTANTIATE_TEST_SUITE_P(Every, StorageWorkersTest, testing::ValuesIn(Engine::EveryEngine()),
                         testing::PrintToStringParamName());

TEST_P(StorageWorkersTest, EachOpenReaderAndWriterIsAWorker) {
    Create(7);
    Create(8);
    const Reader reader = OpenReader(7);
    Writer writer = OpenWriter(8);
    Protocol::Ids ids;
    Protocol::Ids trackIds;
    storage->GetActiveWorkers(ids, trackIds);
    ASSERT_EQ(ids.ids_size(), 2);
    EXPECT_EQ(trackIds.ids(0), 7U);
    EXPECT_EQ(trackIds.ids(1), 8U);
    writer.reset();
    EXPECT_EQ(ListWorkers().size(), 1U);
}

TEST_P(StorageWorkersTest, AWorkerIsDescribed) {
    Create(7);
    ClientConnection connection;
    connection.id = 42;
    connection.clientIpV4Address = "192.0.2.17";
    const Writer writer = OpenWriter(7, connection);
    const Reader reader = OpenReader(7);
    const std::vector<std::uint64_t> ids = ListWorkers();
    const Protocol::WorkerInfo info = InfoOfWorker(ids[0]);
    EXPECT_EQ(info.type(), Type::WRITER);
    EXPECT_EQ(info.workerid(), ids[0]);
    EXPECT_EQ(info.trackid(), 7U);
    EXPECT_EQ(info.connectionid(), 42U);
    EXPECT_EQ(info.clientipv4address(), "192.0.2.17");
    EXPECT_EQ(InfoOfWorker(ids[1]).type(), Type::READER);
    EXPECT_EQ(InfoOfWorker(ids[1]).clientipv4address(), "");
}

TEST_P(StorageWorkersTest, EachAskedIdentifierIsAnsweredInOrderAnUnknownOneAsNone) {
    Create(7);
    const Reader reader = OpenReader(7);
    const std::uint64_t id = ListWorkers()[0];
    Protocol::Ids ids;
    Protocol::WorkerInfos infos;
    for (const std::uint64_t asked : {id + 5, id, id + 5}) {
        ids.add_ids(asked);
    }
    storage->GetWorkerInfos(ids, infos);
    ASSERT_EQ(infos.infos_size(), 3);
    EXPECT_EQ(infos.infos(0).type(), Type::NONE);
    EXPECT_EQ(infos.infos(0).workerid(), id + 5);
    EXPECT_EQ(infos.infos(1).type(), Type::READER);
    EXPECT_EQ(infos.infos(2).type(), Type::NONE);
}

TEST_P(StorageWorkersTest, IdentifiersOfWorkersCountUpAndAreNotUsedAgain) {
    Create(7);
    std::uint64_t last = 0;
    for (int round = 0; round < 3; ++round) {
        const Reader reader = OpenReader(7);
        EXPECT_GT(ListWorkers()[0], last);
        last = ListWorkers()[0];
    }
}

TEST_P(StorageWorkersTest, ThroughputIsPayloadPerSecondOverTheLastSeconds) {
    Create(7);
    const Writer writer = OpenWriter(7);
    const std::uint64_t id = ListWorkers()[0];
    EXPECT_EQ(InfoOfWorker(id).throughput(), 0U);
    std::int64_t time = 0;
    for (int second = 0; second < 10; ++second) {
        for (int chunk = 0; chunk < 10; ++chunk) {
            now += std::chrono::milliseconds(100);
            writer->Append(MakeChunk(++time, 1, {{"data", Bytes(900)}}, {{"p", Bytes(100)}}));
        }
    }
    EXPECT_NEAR(static_cast<double>(InfoOfWorker(id).throughput()), 10000, 1500);
    now += std::chrono::seconds(60);
    EXPECT_EQ(InfoOfWorker(id).throughput(), 0U);
}

TEST_P(StorageWorkersTest, AReadersThroughputCountsWhatItRead) {
    Create(7);
    Append(7, MakeChunk(1, 1, {{"a", Bytes(1000)}, {"b", Bytes(5000)}}));
    const Reader reader = OpenReader(7);
    Protocol::Chunk chunk;
    bool found = false;
    reader->GetChunk(At(1), Keys({"a"}), chunk, found);
    EXPECT_EQ(InfoOfWorker(ListWorkers()[0]).throughput(), 1000U);
}

TEST_P(StorageWorkersTest, TooManyWorkersAreRefused) {
    Create(7);
    const Reader first = OpenReader(7);
    const Reader second = OpenReader(7);
    const Reader third = OpenReader(7);
    EXPECT_EQ(ErrorOf([&] { OpenWriter(7); }), "3 readers and writers are open, the limit is 3");
    EXPECT_EQ(ListWorkers().size(), 3U);
}

}  // namespace Brantel::Tracks
