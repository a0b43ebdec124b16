#include "Support/VirtualTable.h"

#include <libServices/IServiceConnection.h>
#include <libServices/IServiceHandler.h>
#include <libServices/SocketDisconnected.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <type_traits>

namespace Brantel::Services {
namespace {

using Tests::CountTo;
using Tests::PlacesOf;

TEST(IServiceConnectionTest, CloseSendAndReceiveStandInThisOrderBehindTheDestructor) {
    using I = IServiceConnection;
    EXPECT_EQ(PlacesOf(&I::Close, &I::Send, &I::Receive), CountTo(3));
    EXPECT_TRUE(std::has_virtual_destructor_v<I>);
}

TEST(IServiceConnectionTest, AHandlerHasTheOneOperationHandleBehindItsDestructor) {
    EXPECT_EQ(PlacesOf(&IServiceHandler::Handle), CountTo(1));
    EXPECT_TRUE(std::has_virtual_destructor_v<IServiceHandler>);
}

TEST(IServiceConnectionTest, ALostConnectionIsARuntimeErrorOfTheGlobalNamespace) {
    EXPECT_TRUE((std::is_base_of_v<std::runtime_error, ::SocketDisconnected>));
    EXPECT_STREQ(::SocketDisconnected("gone").what(), "gone");
}

}  // namespace
}  // namespace Brantel::Services
