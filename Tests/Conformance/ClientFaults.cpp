#include "Conformance/ClientFaults.h"

#include "Conformance/PlainServer.h"
#include "Support/BlockedThread.h"
#include "Support/FailingSystem.h"
#include "Support/Frames.h"
#include "Support/InterruptingSignal.h"
#include "Support/ProofSize.h"
#include "Support/Text.h"
#include "Support/Waiting.h"

#include <libServices/IServiceConnection.h>
#include <libServices/SocketDisconnected.h>

#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>

#include <algorithm>
#include <future>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>

namespace BrantelStorageApi {

namespace {

using namespace std::string_literals;
using Brantel::Tests::Eventually;
using Brantel::Tests::FailingAllocation;
using Brantel::Tests::Frame;
using Brantel::Tests::FrameOf;
using Brantel::Tests::InterruptingSignal;
using Brantel::Tests::RawPeer;
using Brantel::Tests::ThisThread;
using Brantel::Tests::Varint;
using Brantel::Tests::WaitUntilBlockedIn;

const std::string closedByTheOtherSide = "Connection closed by the other side";

// A connection of ours that runs out of memory, once, in the exchange it is told.
class StarvedConnection : public Brantel::Services::IServiceConnection {
  public:
    explicit StarvedConnection(std::unique_ptr<Connection> real) : real(std::move(real)) {}

    void Close() override { real->Close(); }
    bool Send(const google::protobuf::Message& message) override {
        if (successes) {
            failing.emplace(*successes);
            successes.reset();
        }
        return real->Send(message);
    }
    bool Receive(google::protobuf::Message& message) override { return real->Receive(message); }

    // From the next Send on the allocation after so many fails.
    void Starve(int allocations) { successes = allocations; }
    // Whether one has failed since then; none fails any more.
    bool Feed() {
        const bool failed = failing && failing->HasFailed();
        failing.reset();
        return failed;
    }
    Connection& Real() { return *real; }

  private:
    const std::unique_ptr<Connection> real;
    std::optional<int> successes;
    std::optional<FailingAllocation> failing;
};

// One call of a client, and the plain socket at the other end.
class ClientCase {
  public:
    ClientCase(const MatrixOperation& operation, const PlainServer& server, Cell& cell)
        : operation(operation),
          server(server),
          cell(cell),
          connection(server.Connect()),
          peer(server.Accept()) {
        stubs.emplace(connection);
        if (operation.name.starts_with("TrackReader_") &&
            !operation.name.ends_with("Constructor")) {
            Construct(OPERATION_TrackReader_Constructor);
        }
        if (operation.name.starts_with("TrackWriter_") &&
            !operation.name.ends_with("Constructor")) {
            Construct(OPERATION_TrackWriter_Constructor);
        }
    }

    bool IsClose() const { return operation.row == nullptr; }
    std::string RequestFrame() const {
        return Frame(IsClose() ? Brantel::Tests::FromText<Request>("operation: CLOSE_CONNECTION")
                               : RequestOf(*operation.row));
    }
    // The right answer; the end of a connection has none, so that any will do.
    Response Answer() const {
        return ResponseOf(IsClose() ? RowOf(OPERATION_TrackStorage_ListTracks) : *operation.row);
    }
    const OperationRow& OtherRow() const {
        return RowOf(operation.operation == OPERATION_TrackStorage_GetRemainingSpace
                         ? OPERATION_TrackStorage_GetTrackSize
                         : OPERATION_TrackStorage_GetRemainingSpace);
    }

    // The call: what it throws, or nothing.
    std::string Call() {
        return OutcomeOf([this] {
            if (IsClose()) {
                stubs.reset();
            } else {
                operation.row->stub(*stubs, out);
            }
        });
    }
    // A call of another operation on the same connection, whose answer is there: what it throws, or
    // what it changes.
    std::string CallNext() {
        peer.TryWrite(Frame(ResponseOf(OtherRow())));
        return CallOther(*stubs);
    }

    // The call takes the server's answer for its own.
    void ExpectAnswered() {
        cell.ExpectEqual(Call(), "", "the call");
        cell.ExpectEqual(out.Changes(), IsClose() ? "" : operation.row->outputs, "its outputs");
        ExpectOneRequest();
    }
    // The call throws this and changes nothing, and the connection is as good as before.
    void ExpectRefused(const std::string& outcome) {
        cell.ExpectEqual(Call(), IsClose() ? "" : outcome, "the call");
        cell.ExpectEqual(out.Changes(), "", "its outputs");
        ExpectOneRequest();
        ExpectInStep();
    }
    // The call throws this and changes nothing, and so does every other on this connection; a new
    // one is served.
    void ExpectLost(const std::string& text) { ExpectLostAfter(Call(), text); }
    void ExpectLostAfter(const std::string& outcome, const std::string& text) {
        const std::string wanted = IsClose() ? "" : "SocketDisconnected: " + text;
        cell.ExpectEqual(outcome, wanted, "the call");
        cell.ExpectEqual(out.Changes(), "", "its outputs");
        if (!IsClose()) {
            cell.ExpectEqual(CallNext(), wanted, "the next call");
        }
        ExpectANewConnectionServes();
    }
    // The server was sent the request, whole, and nothing else.
    void ExpectOneRequest() {
        const std::string request = RequestFrame();
        cell.ExpectEqual(peer.Read(request.size()), request, "the request");
        cell.Expect(!peer.HasInput(), "more than one request");
    }
    // The next call of the connection gets its own answer.
    void ExpectInStep() {
        if (!IsClose()) {
            cell.ExpectEqual(CallNext(), OtherRow().outputs, "the next call");
            peer.Read(Frame(RequestOf(OtherRow())).size());
        }
    }
    void ExpectANewConnectionServes() const {
        const auto again = server.Connect();
        RawPeer other = server.Accept();
        Stubs fresh(*again);
        other.Write(Frame(ResponseOf(OtherRow())));
        cell.ExpectEqual(CallOther(fresh), OtherRow().outputs, "a call on a new connection");
    }

    // The client's end goes.
    void EndClient() {
        stubs.reset();
        connection.Close();
    }

    const MatrixOperation& operation;
    const PlainServer& server;
    Cell& cell;
    StarvedConnection connection;
    RawPeer peer;
    std::optional<Stubs> stubs;
    Outputs out{false};

  private:
    void Construct(Operation constructor) {
        const OperationRow& row = RowOf(constructor);
        peer.Write(Frame(ResponseOf(row)));
        row.stub(*stubs, out);
        peer.Read(Frame(RequestOf(row)).size());
    }
    std::string CallOther(Stubs& with) const {
        Outputs other(false);
        const std::string outcome = OutcomeOf([&] { OtherRow().stub(with, other); });
        return outcome.empty() ? other.Changes() : outcome;
    }
    template <class Work>
    static std::string OutcomeOf(const Work& work) {
        try {
            work();
            return "";
        } catch (const SocketDisconnected& error) {
            return std::string("SocketDisconnected: ") + error.what();
        } catch (const std::runtime_error& error) {
            return std::string("runtime_error: ") + error.what();
        } catch (const std::bad_alloc&) {
            return "bad_alloc";
        } catch (const std::exception& error) {
            return std::string("exception: ") + error.what();
        }
    }
};

// The other end of a case, in a thread of its own while the call runs.
template <class Work>
std::future<void> Meanwhile(const Work& work) {
    return std::async(std::launch::async, work);
}

void Refused(const MatrixOperation& operation, Transport transport, Cell& cell) {
    PlainServer server(transport);
    server.StopListening();
    std::string text;
    try {
        server.Connect();
    } catch (const std::runtime_error& error) {
        text = error.what();
    }
    cell.ExpectEqual(text, "Could not connect to " + server.Address() + ": Connection refused",
                     "the connect");
    server.Listen();
    ClientCase afterwards(operation, server, cell);
    afterwards.peer.Write(Frame(afterwards.Answer()));
    afterwards.ExpectAnswered();
}

void GoneBefore(const MatrixOperation& operation, Transport transport, Cell& cell) {
    const PlainServer server(transport);
    ClientCase lost(operation, server, cell);
    lost.peer.Close();
    cell.Expect(Eventually([&] { return lost.connection.Real().PeerGone(); }), "the end");
    // Over TCP the end is read before the system says that nobody took the request.
    lost.ExpectLost(transport == Transport::Unix ? "Connection lost: Broken pipe"
                                                 : closedByTheOtherSide);
}

void HalfRequest(const MatrixOperation& operation, Transport transport, Cell& cell) {
    const PlainServer server(transport);
    ClientCase lost(operation, server, cell);
    auto meanwhile = Meanwhile([&] {
        lost.peer.Read(lost.RequestFrame().size() / 2);
        lost.peer.Close();
    });
    const std::string outcome = lost.Call();
    meanwhile.get();
    lost.ExpectLostAfter(outcome, "Connection lost: Connection reset by peer");
}

void NoAnswer(const MatrixOperation& operation, Transport transport, Cell& cell) {
    const PlainServer server(transport);
    ClientCase lost(operation, server, cell);
    auto meanwhile = Meanwhile([&] {
        const std::string request = lost.RequestFrame();
        cell.ExpectEqual(lost.peer.Read(request.size()), request, "the request");
        lost.peer.Close();
    });
    const std::string outcome = lost.Call();
    meanwhile.get();
    lost.ExpectLostAfter(outcome, closedByTheOtherSide);
}

void ResetByServer(const MatrixOperation& operation, Transport transport, Cell& cell) {
    const PlainServer server(transport);
    ClientCase lost(operation, server, cell);
    auto meanwhile = Meanwhile([&] {
        lost.peer.Read(lost.RequestFrame().size());
        Reset(lost.peer);
    });
    const std::string outcome = lost.Call();
    meanwhile.get();
    lost.ExpectLostAfter(outcome, transport == Transport::Unix
                                      ? closedByTheOtherSide
                                      : "Connection lost: Connection reset by peer");
}

// How an end after so many bytes of a frame is called.
std::string EndAfter(std::size_t bytes, std::size_t lengthSize, std::size_t bodySize) {
    if (bytes < lengthSize) {
        return closedByTheOtherSide + " after " + std::to_string(bytes) +
               " byte of a message's length";
    }
    return closedByTheOtherSide + " after " + std::to_string(bytes - lengthSize) + " of " +
           std::to_string(bodySize) + " bytes of a message";
}

void HalfAnswer(const MatrixOperation& operation, Transport transport, Cell& cell) {
    const PlainServer server(transport);
    const std::size_t body = ClientCase(operation, server, cell).Answer().ByteSizeLong();
    const std::size_t lengthSize = Varint(body).size();
    const std::size_t whole = lengthSize + body;
    const std::size_t step = Brantel::Tests::ProofSize(std::max<std::size_t>(whole / 3, 1), 1);
    for (std::size_t cut = 1; cut < whole; cut += step) {
        ClientCase lost(operation, server, cell);
        lost.peer.Write(Frame(lost.Answer()).substr(0, cut));
        lost.peer.FinishWriting();
        lost.ExpectLost(EndAfter(cut, lengthSize, body));
    }
}

void BadLength(const MatrixOperation& operation, Transport transport, Cell& cell) {
    const PlainServer server(transport);
    const std::size_t limit = Connection::defaultMessageLimit;
    ClientCase tooLong(operation, server, cell);
    tooLong.peer.Write(Varint(limit + 1) + Frame(tooLong.Answer()));
    tooLong.ExpectLost("Connection lost: message of " + std::to_string(limit + 1) +
                       " bytes is over the limit of " + std::to_string(limit) + " bytes");
    ClientCase noLength(operation, server, cell);
    noLength.peer.Write("\x80\x80\x80\x80\x80\x01"s + Frame(noLength.Answer()));
    noLength.ExpectLost("Connection lost: a message length of more than 5 bytes is not valid");
}

void NotAnAnswer(const MatrixOperation& operation, Transport transport, Cell& cell) {
    const PlainServer server(transport);
    ClientCase empty(operation, server, cell);
    empty.peer.Write(FrameOf(""));
    empty.ExpectRefused(
        "runtime_error: Received a BrantelStorageApi.Response that lacks required fields: "
        "is_success");
    ClientCase garbage(operation, server, cell);
    const std::string bytes = garbage.Answer().SerializeAsString() + "\xFF\xFF\xFF";
    garbage.peer.Write(FrameOf(bytes));
    garbage.ExpectRefused("runtime_error: Received " + std::to_string(bytes.size()) +
                          " bytes that are not a BrantelStorageApi.Response");
}

void OtherAnswer(const MatrixOperation& operation, Transport transport, Cell& cell) {
    const PlainServer server(transport);
    ClientCase misled(operation, server, cell);
    for (const OperationRow& other : OperationTable()) {
        if (operation.row == &other) {
            continue;
        }
        misled.out = Outputs(true);
        misled.peer.Write(Frame(ResponseOf(other)));
        if (misled.IsClose()) {
            continue;
        }
        cell.ExpectEqual(misled.Call(), "", "the call");
        cell.ExpectEqual(misled.out.Changes(), operation.row->neutral,
                         std::string("the outputs, of the answer of ") + other.name);
        misled.ExpectOneRequest();
    }
    if (misled.IsClose()) {
        cell.ExpectEqual(misled.Call(), "", "the goodbye");
        misled.ExpectOneRequest();
    }
    misled.ExpectInStep();
}

// An answer with the parts of all operations in it, and fields that nobody knows.
Response Everything(const Response& own) {
    constexpr int unknownNumber = 1000;
    Response all;
    for (const OperationRow& row : OperationTable()) {
        all.MergeFrom(ResponseOf(row));
    }
    const auto& fields = *Response::descriptor();
    std::vector<const google::protobuf::FieldDescriptor*> parts;
    own.GetReflection()->ListFields(own, &parts);
    for (const auto* part : parts) {
        all.GetReflection()->ClearField(&all, fields.FindFieldByNumber(part->number()));
    }
    all.MergeFrom(own);
    all.set_error_code(-1);
    auto& unknown = *all.GetReflection()->MutableUnknownFields(&all);
    unknown.AddVarint(unknownNumber, 1);
    unknown.AddLengthDelimited(unknownNumber + 1, "of a later version");
    unknown.AddFixed64(unknownNumber + 2, 2);
    return all;
}

void StrangeFields(const MatrixOperation& operation, Transport transport, Cell& cell) {
    const PlainServer server(transport);
    ClientCase served(operation, server, cell);
    Response strange = Everything(served.Answer());
    strange.set_exception("not looked at in a success");
    served.peer.Write(Frame(strange));
    served.ExpectAnswered();
    served.ExpectInStep();
}

void Failure(const MatrixOperation& operation, Transport transport, Cell& cell) {
    constexpr std::size_t longest = 100'000;
    const PlainServer server(transport);
    for (const std::string& text :
         {""s, "Track 7 does not exist"s, "two\nlines and \xC3\xA4"s, std::string(longest, 'x')}) {
        ClientCase refused(operation, server, cell);
        Response failure = Everything(refused.Answer());
        failure.set_is_success(false);
        failure.set_exception(text);
        auto meanwhile = Meanwhile([&] { refused.peer.TryWrite(Frame(failure)); });
        refused.ExpectRefused("runtime_error: Exception from server: " + text);
        refused.EndClient();
    }
}

// Nothing on the wire ties an answer to its request but their order.
void ExtraAnswer(const MatrixOperation& operation, Transport transport, Cell& cell) {
    const PlainServer server(transport);
    ClientCase answered(operation, server, cell);
    const OperationRow& extra = RowOf(OPERATION_TrackStorage_ListTracks);
    answered.peer.Write(Frame(answered.Answer()) + Frame(ResponseOf(extra)));
    answered.ExpectAnswered();
    if (!answered.IsClose()) {
        // Taken for the answer of the next call, which is of another operation and finds nothing.
        cell.ExpectEqual(answered.CallNext(), "number: 0", "the next call");
        answered.EndClient();
    }
    answered.ExpectANewConnectionServes();
}

void ByteByByte(const MatrixOperation& operation, Transport transport, Cell& cell) {
    const PlainServer server(transport);
    const InterruptingSignal signal(SIGUSR1);
    ClientCase slow(operation, server, cell);
    const pthread_t thread = ::pthread_self();
    const long id = ThisThread();
    auto meanwhile = Meanwhile([&] {
        slow.peer.Read(slow.IsClose() ? 0 : slow.RequestFrame().size());
        const std::string answer = Frame(slow.Answer());
        for (std::size_t i = 0; i < answer.size(); ++i) {
            const bool isTold = i == 0 || i == answer.size() / 2 || i + 1 == answer.size();
            if (isTold && !slow.IsClose()) {
                InterruptingSignal::Send(thread, id, SYS_recvfrom);
            }
            slow.peer.TryWrite(answer.substr(i, 1));
        }
    });
    cell.ExpectEqual(slow.Call(), "", "the call");
    meanwhile.get();
    cell.ExpectEqual(slow.out.Changes(), slow.IsClose() ? "" : operation.row->outputs,
                     "its outputs");
    cell.Expect(slow.IsClose() || InterruptingSignal::count.load() >= 2, "the signals");
    slow.ExpectInStep();
}

void ClosedMeanwhile(const MatrixOperation& operation, Transport transport, Cell& cell) {
    const PlainServer server(transport);
    ClientCase closed(operation, server, cell);
    const long id = ThisThread();
    if (closed.IsClose()) {
        closed.connection.Close();
        closed.ExpectLost("Connection closed");
        return;
    }
    auto meanwhile = Meanwhile([&] {
        closed.peer.Read(closed.RequestFrame().size());
        WaitUntilBlockedIn(id, SYS_recvfrom);
        closed.connection.Close();
    });
    const std::string outcome = closed.Call();
    meanwhile.get();
    closed.ExpectLostAfter(outcome, "Connection closed");
}

// Answers every request as it should be, until the client is gone.
void AnswerAll(RawPeer& peer) {
    for (std::string bytes; ReadFrame(peer, bytes);) {
        Request request;
        if (!request.ParseFromString(bytes) || request.operation() == CLOSE_CONNECTION) {
            return;
        }
        peer.TryWrite(Frame(ResponseOf(RowOf(request.operation()))));
    }
}

// True when there was an allocation to fail.
bool CallWithout(int successes, const MatrixOperation& operation, const PlainServer& server,
                 Cell& cell) {
    ClientCase starved(operation, server, cell);
    auto meanwhile = Meanwhile([&] { AnswerAll(starved.peer); });
    const std::string which = "without the allocation after " + std::to_string(successes);
    starved.connection.Starve(successes);
    const std::string outcome = starved.Call();
    const bool failed = starved.connection.Feed();
    const std::string lost = "Connection lost in the middle of a message: std::bad_alloc";
    if (outcome.empty()) {
        cell.ExpectEqual(starved.out.Changes(), starved.IsClose() ? "" : operation.row->outputs,
                         which + ", the outputs");
    } else {
        cell.Expect(failed && (outcome == "bad_alloc" || outcome == "SocketDisconnected: " + lost),
                    which + ": " + outcome);
        cell.ExpectEqual(starved.out.Changes(), "", which + ", the outputs");
    }
    if (!starved.IsClose()) {
        Outputs other(false);
        std::string next;
        try {
            starved.OtherRow().stub(*starved.stubs, other);
            next = other.Changes();
        } catch (const std::exception& error) {
            next = error.what();
        }
        const bool isLost = outcome.starts_with("SocketDisconnected");
        cell.ExpectEqual(next, isLost ? lost : starved.OtherRow().outputs,
                         which + ", the next call");
    }
    starved.EndClient();
    meanwhile.get();
    return failed;
}

void NoMemory(const MatrixOperation& operation, Transport transport, Cell& cell) {
    constexpr int most = 500;
    const PlainServer server(transport);
    if (operation.row == nullptr) {
        // The goodbye of a connection that was used needs no memory.
        ClientCase used(operation, server, cell);
        cell.ExpectEqual(used.CallNext(), used.OtherRow().outputs, "a call before");
        used.peer.Read(Frame(RequestOf(used.OtherRow())).size());
        used.connection.Starve(0);
        const std::string outcome = used.Call();
        const bool tookMemory = used.connection.Feed();
        cell.Expect(!tookMemory, "the goodbye took memory");
        cell.ExpectEqual(outcome, "", "the goodbye");
        used.ExpectOneRequest();
        return;
    }
    int successes = 0;
    while (successes < most && CallWithout(successes, operation, server, cell)) {
        ++successes;
    }
    cell.Expect(successes > 0 && successes < most,
                "failed allocations: " + std::to_string(successes));
}

constexpr Fault faults[] = {
    {"refused", "nobody listens, then somebody does", Refused},
    {"gone before", "the server has closed the connection before the call", GoneBefore},
    {"half request", "the server goes in the middle of the request", HalfRequest},
    {"no answer", "the server goes instead of answering", NoAnswer},
    {"reset", "the connection is reset instead of an answer", ResetByServer},
    {"half answer", "the answer is cut off, at several places or at every byte", HalfAnswer},
    {"bad length", "the answer's length is over the limit, or none", BadLength},
    {"no message", "the answer is empty, or garbage", NotAnAnswer},
    {"other's", "the answer is that of another operation, each of them", OtherAnswer},
    {"strange", "the answer also has all other parts, and fields of a later version",
     StrangeFields},
    {"failure", "the server reports a failure, with results beside it", Failure},
    {"one more", "the server answers once more than it was asked", ExtraAnswer},
    {"interrupted", "the answer comes byte by byte, with signals between", ByteByByte},
    {"closed", "another thread closes the connection while the call waits", ClosedMeanwhile},
    {"no memory", "there is no memory, for each allocation of the exchange once", NoMemory},
};

}  // namespace

std::span<const Fault> ClientFaults() {
    return faults;
}

}  // namespace BrantelStorageApi
