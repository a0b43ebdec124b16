// The shape of what applications hold: programs that were built with an older library find each
// operation at its place.
#include "Support/VirtualTable.h"

#include <libProtocolX/IStorageReaderX.h>
#include <libProtocolX/IStorageWriterX.h>
#include <libProtocolX/StorageClientX.h>
#include <libProtocolX/StorageReaderX.h>
#include <libProtocolX/StorageWriterX.h>

#include <gtest/gtest.h>

#include <tuple>
#include <type_traits>

namespace Brantel::ProtocolX {
namespace {

using Tests::CountTo;
using Tests::PlacesOf;

TEST(IStorageReaderXTest, ItsOperationsStandInTheirOrder) {
    using I = IStorageReaderX;
    EXPECT_EQ(PlacesOf(&I::GetTrackId, &I::FirstTimePoint, &I::LastTimePoint, &I::NextTimePoint,
                       &I::PreviousTimePoint, &I::GetChunk, &I::GetNextChunk, &I::GetPreviousChunk),
              CountTo(8));
}

TEST(IStorageReaderXTest, ItHasNoDataAndAVirtualDestructor) {
    EXPECT_TRUE(std::is_abstract_v<IStorageReaderX>);
    EXPECT_TRUE(std::has_virtual_destructor_v<IStorageReaderX>);
    EXPECT_EQ(sizeof(IStorageReaderX), sizeof(void*));
    EXPECT_TRUE((std::is_base_of_v<IStorageReaderX, StorageReaderX>));
}

TEST(IStorageWriterXTest, ItsOperationsStandInTheirOrder) {
    using I = IStorageWriterX;
    EXPECT_EQ(PlacesOf(&I::GetTrackId, &I::Append), CountTo(2));
}

TEST(IStorageWriterXTest, ItHasNoDataAndAVirtualDestructor) {
    EXPECT_TRUE(std::is_abstract_v<IStorageWriterX>);
    EXPECT_TRUE(std::has_virtual_destructor_v<IStorageWriterX>);
    EXPECT_EQ(sizeof(IStorageWriterX), sizeof(void*));
    EXPECT_TRUE((std::is_base_of_v<IStorageWriterX, StorageWriterX>));
}

TEST(StorageClientXShapeTest, TheClientHasAVirtualDestructorAndCannotBeCopied) {
    EXPECT_TRUE(std::has_virtual_destructor_v<StorageClientX>);
    EXPECT_FALSE(std::is_copy_constructible_v<StorageClientX>);
    EXPECT_FALSE(std::is_copy_assignable_v<StorageClientX>);
}

TEST(StorageClientXShapeTest, TheRecordsHaveTheirFieldsInOrder) {
    using C = StorageClientX;
    const auto at = [](long count) { return Time::TimePoint::Nanoseconds(count); };
    const C::TrackParameters parameters{1, 2, 3};
    EXPECT_EQ(std::tuple(parameters.id, parameters.size, parameters.commandId),
              std::tuple(1, 2, 3));
    const C::TrackInfo track{1, at(2), at(3), 4, 5};
    EXPECT_EQ(std::tuple(track.trackId, track.tpIn, track.tpOut, track.size, track.capacity),
              std::tuple(1, at(2), at(3), 4, 5));
    const C::ProtectionInfos protection{1, 2, at(3), at(4)};
    EXPECT_EQ(std::tuple(protection.handle, protection.trackId, protection.tcIn, protection.tcOut),
              std::tuple(1, 2, at(3), at(4)));
    const C::WorkerInfo worker{C::WRITER, 1, 2, 3, 4, "address"};
    EXPECT_EQ(std::tuple(worker.type, worker.workerId, worker.connectionId, worker.throughput,
                         worker.trackId, worker.clientIpV4Address),
              std::tuple(C::WRITER, 1, 2, 3, 4, "address"));
    const C::CommandInfo command{C::QUEUED, 1};
    EXPECT_EQ(std::tuple(command.type, command.progression), std::tuple(C::QUEUED, 1));
}

TEST(StorageClientXShapeTest, TheEnumerationsHaveTheirNumbers) {
    using C = StorageClientX;
    EXPECT_EQ(std::tuple(int{C::NONE}, int{C::READER}, int{C::WRITER}), std::tuple(0, 1, 2));
    EXPECT_EQ(std::tuple(int{C::NOT_EXIST}, int{C::FINISHED}, int{C::CANCELED}, int{C::QUEUED},
                         int{C::ONGOING}),
              std::tuple(0, 1, 2, 3, 4));
}

}  // namespace
}  // namespace Brantel::ProtocolX
