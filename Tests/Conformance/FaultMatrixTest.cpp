// Every operation against everything that goes wrong at either end of a connection: what comes of
// it is known for each pair, and nothing is left open.

#include "Conformance/ClientFaults.h"
#include "Conformance/FaultMatrix.h"
#include "Conformance/ServerFaults.h"

#include <gtest/gtest.h>

#include <iostream>
#include <string>

// Parsing, protobuf 3.21 makes the element of a list before it makes room for it, and loses it when
// there is none.
// NOLINTNEXTLINE(bugprone-reserved-identifier,readability-identifier-naming): the sanitizer's name
extern "C" const char* __lsan_default_suppressions() {
    return "leak:google::protobuf::internal::ParseContext::ParseMessage\n";
}

namespace BrantelStorageApi {
namespace {

class FaultMatrixTest : public testing::Test {
  protected:
    static void Run(const std::string& title, std::span<const Fault> faults) {
        FaultMatrix matrix(title, faults);
        matrix.Run();
        std::cout << '\n' << matrix.Text() << std::endl;
        RecordProperty("cycles", std::to_string(matrix.Checks()));
        RecordProperty("cells", std::to_string(matrix.Cells()));
        EXPECT_EQ(matrix.Failures(), "");
        EXPECT_EQ(matrix.EmptyCells(), 0U);
        EXPECT_EQ(matrix.Cells(), 36 * faults.size());
    }
};

TEST_F(FaultMatrixTest, EveryCallMeetsEveryFaultOfAClient) {
    ASSERT_EQ(ClientFaults().size(), 15U);
    Run("What a call of a client does when ... (checks made)", ClientFaults());
}

TEST_F(FaultMatrixTest, EveryRequestMeetsEveryFaultOfAServer) {
    ASSERT_EQ(ServerFaults().size(), 12U);
    Run("What a server does when ... (checks made)", ServerFaults());
}

// The matrix itself: a cell that checked nothing, or failed, is seen.
TEST_F(FaultMatrixTest, ACellWithoutAnyCheckIsNoticed) {
    const Fault faults[] = {
        {"nothing", "checks nothing", [](const MatrixOperation&, Transport, Cell&) {}},
        {"wrong", "fails", [](const MatrixOperation&, Transport, Cell& cell) {
             cell.Expect(true, "right");
             cell.ExpectEqual("a", "b", "letters");
         }}};
    FaultMatrix matrix("", faults);
    matrix.Run();
    EXPECT_EQ(matrix.EmptyCells(), 36U);
    EXPECT_NE(
        matrix.Failures().find("CLOSE_CONNECTION, wrong: letters: found \"a\", not \"b\" (TCP)"),
        std::string::npos);
}

}  // namespace
}  // namespace BrantelStorageApi
