#include "Support/RecordingObjects.h"
#include "Support/VirtualTable.h"

#include <libProtocolX/rpc/ITrackReader.h>
#include <libProtocolX/rpc/ITrackReaderFactory.h>
#include <libProtocolX/rpc/ITrackStorage.h>
#include <libProtocolX/rpc/ITrackWriter.h>
#include <libProtocolX/rpc/ITrackWriterFactory.h>
#include <libProtocolX/rpc/Service.h>

#include <gtest/gtest.h>

#include <type_traits>

namespace BrantelStorageApi {
namespace {

using Brantel::Tests::CountTo;
using Brantel::Tests::PlacesOf;

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

TEST(DynamicObjectTest, TheFactoriesHaveOneOperationEach) {
    EXPECT_EQ(PlacesOf(&ITrackReaderFactory::CreateTrackReader), CountTo(1));
    EXPECT_EQ(PlacesOf(&ITrackWriterFactory::CreateTrackWriter), CountTo(1));
    EXPECT_FALSE((std::is_base_of_v<DynamicObject, ITrackReaderFactory>));
    EXPECT_FALSE((std::is_base_of_v<DynamicObject, ITrackWriterFactory>));
}

TEST(DynamicObjectTest, TheServiceIsAHandlerThatAddsServeRequest) {
    EXPECT_EQ(PlacesOf(&Service::Handle, &Service::ServeRequest), CountTo(2));
    EXPECT_TRUE((std::is_base_of_v<Brantel::Services::IServiceHandler, Service>));
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
    EXPECT_TRUE(journal.Calls().empty());
}

}  // namespace
}  // namespace BrantelStorageApi
