#include "Support/RecordingObjects.h"

#include <libProtocolX/rpc/ITrackReader.h>
#include <libProtocolX/rpc/ITrackStorage.h>
#include <libProtocolX/rpc/ITrackWriter.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <type_traits>
#include <vector>

namespace BrantelStorageApi {
namespace {

// The place of a virtual operation after the destructor, counted from 1: in the system's C++ ABI a
// pointer to it holds 1 + its offset in the table, where the destructor takes the first two places.
template <class Operation>
long PlaceOf(Operation operation) {
    std::ptrdiff_t value = 0;
    std::memcpy(&value, &operation, sizeof(value));
    const auto pointer = static_cast<std::ptrdiff_t>(sizeof(void*));
    return (value - 1) / pointer - 1;
}

template <class... Operations>
std::vector<long> PlacesOf(Operations... operations) {
    return {PlaceOf(operations)...};
}

std::vector<long> CountTo(long last) {
    std::vector<long> numbers;
    for (long number = 1; number <= last; ++number) {
        numbers.push_back(number);
    }
    return numbers;
}

TEST(DynamicObjectTest, TheOperationsOfTheStorageStandInTheirOrder) {
    using I = ITrackStorage;
    EXPECT_EQ(
        PlacesOf(&I::GetTrackProperties, &I::GetNumberOfChunks, &I::DeleteTrack, &I::GetTrackSize,
                 &I::GetTrackInfos, &I::RemoveTrackProperties, &I::GetActiveWorkers, &I::GrowTrack,
                 &I::GetCommandInfo, &I::GetRemainingSpace, &I::GetBeginningOfTrack, &I::ClearTrack,
                 &I::GetAccumulatedDuration, &I::Protect, &I::GetWorkerInfos, &I::Unprotect,
                 &I::GetEndOfTrack, &I::ListProtections, &I::CreateTrack, &I::GetOngoingCommands,
                 &I::SetTrackProperties, &I::ListTracks),
        CountTo(22));
}

TEST(DynamicObjectTest, TheOperationsOfTheReaderStandInTheirOrder) {
    using I = ITrackReader;
    EXPECT_EQ(PlacesOf(&I::DestroyOnServer, &I::NextTimePoint, &I::GetChunk, &I::GetTrackId,
                       &I::PreviousTimePoint, &I::GetPreviousChunk, &I::GetNextChunk, &I::Wait),
              CountTo(8));
}

TEST(DynamicObjectTest, TheOperationsOfTheWriterStandInTheirOrder) {
    using I = ITrackWriter;
    EXPECT_EQ(PlacesOf(&I::DestroyOnServer, &I::Append, &I::GetTrackId), CountTo(3));
}

TEST(DynamicObjectTest, EveryInterfaceIsADynamicObjectWithAVirtualDestructor) {
    EXPECT_TRUE(std::has_virtual_destructor_v<DynamicObject>);
    EXPECT_TRUE((std::is_base_of_v<DynamicObject, ITrackStorage>));
    EXPECT_TRUE((std::is_base_of_v<DynamicObject, ITrackReader>));
    EXPECT_TRUE((std::is_base_of_v<DynamicObject, ITrackWriter>));
    EXPECT_EQ(sizeof(DynamicObject), sizeof(void*)) << "no data";
}

TEST(DynamicObjectTest, DestroyOnServerDoesNothingByDefault) {
    Journal journal;
    RecordingReader reader(journal);
    RecordingWriter writer(journal);
    reader.DestroyOnServer();
    writer.DestroyOnServer();
    EXPECT_TRUE(journal.calls.empty());
}

}  // namespace
}  // namespace BrantelStorageApi
