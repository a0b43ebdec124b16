#include "Unit/Rpc/libProtocolX/rpc/StubFixture.h"

#include <gtest/gtest.h>

#include <string>

namespace BrantelStorageApi {
namespace {

// Every call of every stub, by the operation table.
class ClientStubsTest : public testing::Test {
  protected:
    // The call against a server that gives the table's answer.
    static void Call(ScriptedStubs& scripted, const OperationRow& row, Outputs& out) {
        scripted.connection.WillReceive(ResponseOf(row));
        row.stub(scripted.stubs, out);
    }
};

TEST_F(ClientStubsTest, EveryCallSendsOneRequestWithItsOperationAndItsSubMessageAlone) {
    for (const OperationRow& row : OperationTable()) {
        ScriptedStubs scripted;
        Outputs out;
        Call(scripted, row, out);
        ASSERT_EQ(scripted.connection.sent.size(), 1U) << row.name;
        EXPECT_EQ(scripted.connection.sent[0], RequestOf(row).SerializeAsString()) << row.name;
    }
}

TEST_F(ClientStubsTest, EveryCallReceivesOneResponseAndCopiesItsFieldsToItsOutputs) {
    for (const OperationRow& row : OperationTable()) {
        ScriptedStubs scripted;
        Outputs out(false);
        Call(scripted, row, out);
        EXPECT_EQ(scripted.connection.received, 1U) << row.name;
        EXPECT_EQ(out.Changes(), row.outputs) << row.name;
    }
}

TEST_F(ClientStubsTest, EveryLookupCopiesItsOtherOutputWhateverTheResultSays) {
    const std::string yes = "result: true";
    int lookups = 0;
    for (const OperationRow& row : OperationTable()) {
        std::string answer = row.response;
        if (!answer.ends_with(yes)) {
            continue;
        }
        ++lookups;
        answer.replace(answer.size() - yes.size(), yes.size(), "result: false");
        ScriptedStubs scripted;
        scripted.WillAnswer("is_success: true " + std::string(row.name) + " { " + answer + " }");
        Outputs out(true);
        row.stub(scripted.stubs, out);
        std::string expected = row.outputs;
        expected.replace(expected.find("flag: true"), yes.size(), "flag: false");
        EXPECT_EQ(out.Changes(), expected) << row.name;
    }
    EXPECT_EQ(lookups, 6) << "five lookups and the wait";
}

TEST_F(ClientStubsTest, EverySubMessageIsPresentEvenWhenItHasNoFields) {
    for (const OperationRow& row : OperationTable()) {
        ScriptedStubs scripted;
        Outputs out;
        Call(scripted, row, out);
        Request request;
        ASSERT_TRUE(request.ParseFromString(scripted.connection.sent[0]));
        const auto* part = Request::descriptor()->FindFieldByNumber(request.operation());
        EXPECT_TRUE(request.GetReflection()->HasField(request, part)) << row.name;
    }
}

TEST_F(ClientStubsTest, TheTableHasAllOperationsFrom2To36Once) {
    unsigned long seen = 0;
    for (const OperationRow& row : OperationTable()) {
        seen |= 1UL << RequestOf(row).operation();
    }
    EXPECT_EQ(OperationTable().size(), 35U);
    EXPECT_EQ(seen, 0x1FFFFFFFFCUL);
}

}  // namespace
}  // namespace BrantelStorageApi
