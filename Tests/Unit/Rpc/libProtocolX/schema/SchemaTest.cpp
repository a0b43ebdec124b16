#include <BrantelStorageApiMessages.pb.h>

#include <gtest/gtest.h>

namespace BrantelStorageApi {
namespace {

TEST(SchemaTest, DescriptorsCarryTheFilesOwnNames) {
    EXPECT_EQ(Request::descriptor()->file()->name(), "BrantelStorageApiMessages.proto");
    EXPECT_EQ(Protocol::Chunk::descriptor()->file()->name(), "CommonMessages.proto");
}

}  // namespace
}  // namespace BrantelStorageApi
