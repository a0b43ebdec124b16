#include <BrantelStorageApiMessages.pb.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <StorageServer/QuickRequest.h>

#include <string>
#include <vector>

namespace Brantel::Server {
namespace {

using BrantelStorageApi::Operation;
using BrantelStorageApi::Request;

bool IsQuick(const std::string& bytes) {
    return IsQuickRequest(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
}

Request SizeOfTrack(std::int64_t track) {
    Request request;
    request.set_operation(BrantelStorageApi::OPERATION_TrackStorage_GetTrackSize);
    request.mutable_trackstorage_gettracksize()->set_trackid(track);
    return request;
}

TEST(QuickRequestTest, QuickIsWhatNeedsNeitherTheMediumNorAnotherClient) {
    std::vector<std::string> quick;
    const auto& operations = *BrantelStorageApi::Operation_descriptor();
    for (int index = 0; index < operations.value_count(); ++index) {
        Request request;
        request.set_operation(static_cast<Operation>(operations.value(index)->number()));
        if (IsQuick(request.SerializePartialAsString())) {
            quick.push_back(operations.value(index)->name());
        }
    }
    EXPECT_THAT(quick, testing::UnorderedElementsAre("OPERATION_TrackStorage_GetTrackSize",
                                                     "OPERATION_TrackStorage_GetBeginningOfTrack",
                                                     "OPERATION_TrackStorage_GetEndOfTrack",
                                                     "OPERATION_TrackStorage_GetCommandInfo",
                                                     "OPERATION_TrackReader_GetTrackId",
                                                     "OPERATION_TrackWriter_GetTrackId"));
}

TEST(QuickRequestTest, AWholeRequestIsQuick) {
    EXPECT_TRUE(IsQuick(SizeOfTrack(1).SerializeAsString()));
    EXPECT_TRUE(IsQuick(SizeOfTrack(-1).SerializeAsString()));
}

TEST(QuickRequestTest, ARequestThatHoldsMoreIsNot) {
    Request request = SizeOfTrack(1);
    request.mutable_trackwriter_append()->mutable_chunk()->mutable_data()->add_items()->set_value(
        std::string(60, 'x'));
    EXPECT_FALSE(IsQuick(request.SerializePartialAsString()));
}

TEST(QuickRequestTest, WhatDoesNotBeginWithAnOperationIsNot) {
    const std::string bytes = SizeOfTrack(1).SerializeAsString();
    EXPECT_FALSE(IsQuick(""));
    EXPECT_FALSE(IsQuick(bytes.substr(0, 1)));
    EXPECT_FALSE(IsQuick(bytes.substr(2) + bytes.substr(0, 2)));
    EXPECT_FALSE(IsQuick("\x08\x86\x01"));
}

}  // namespace
}  // namespace Brantel::Server
