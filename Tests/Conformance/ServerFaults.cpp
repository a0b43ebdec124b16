#include "Conformance/ServerFaults.h"

#include "Conformance/PlainServer.h"
#include "Support/Frames.h"
#include "Support/ProofSize.h"
#include "Support/RecordingObjects.h"
#include "Support/Text.h"
#include "Support/Waiting.h"

#include <libProtocolX/rpc/Service.h>
#include <libServices/ServiceListener.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <deque>
#include <future>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

namespace BrantelStorageApi {

namespace {

using namespace std::string_literals;
using Brantel::Services::IServiceConnection;
using Brantel::Services::IServiceHandler;
using Brantel::Services::PeerAddress;
using Brantel::Services::ServiceListener;
using Brantel::Services::ServiceListenerEvent;
using Brantel::Services::ServiceListenerOptions;
using Brantel::Tests::Descriptor;
using Brantel::Tests::Eventually;
using Brantel::Tests::Frame;
using Brantel::Tests::FrameOf;
using Brantel::Tests::FromText;
using Brantel::Tests::Gate;
using Brantel::Tests::RawPeer;
using Brantel::Tests::ToText;
using Brantel::Tests::Varint;

using Event = ServiceListenerEvent::Kind;

const std::string closedByTheOtherSide = "Connection closed by the other side";

// A server as the real one is made, a service of its own for each connection, over objects that
// note what they are asked, connection by connection.
class RecordingService {
  public:
    explicit RecordingService(Transport transport, bool isConfigured = true)
        : transport(transport), isConfigured(isConfigured), listener(Factory(), Options()) {
        if (transport == Transport::Unix) {
            listener.ListenUnix(path);
        } else {
            port = listener.ListenTcp("127.0.0.1", 0);
        }
        listener.Start();
    }
    RecordingService(const RecordingService&) = delete;
    RecordingService& operator=(const RecordingService&) = delete;
    ~RecordingService() { listener.Stop(); }

    std::unique_ptr<Connection> Connect() const { return ConnectTo(transport, path, port); }
    // A client that takes little before it has to read.
    RawPeer ConnectPlain() const {
        const auto connection = Connect();
        Descriptor copy(::fcntl(Reach::Of(*connection), F_DUPFD_CLOEXEC, 0));
        constexpr int small = 4096;
        ::setsockopt(copy.Get(), SOL_SOCKET, SO_RCVBUF, &small, sizeof(small));
        ::setsockopt(copy.Get(), SOL_SOCKET, SO_SNDBUF, &small, sizeof(small));
        return RawPeer(std::move(copy));
    }

    // What the objects of the connection were asked that was served as this one, counted from 0.
    Journal& JournalOf(std::size_t connection) {
        const std::lock_guard guard(mutex);
        return journals.at(connection);
    }
    // True as soon as no more than so many connections are served.
    bool ServesOnly(std::uint64_t connections) const {
        return Eventually([&] { return listener.Counters().active <= connections; });
    }
    // True as soon as something of this kind was reported, with such a text.
    bool WasTold(Event kind, const std::string& text) {
        return Eventually([&] {
            const std::lock_guard guard(mutex);
            return std::any_of(events.begin(), events.end(), [&](const auto& event) {
                return event.kind == kind && event.text.find(text) != std::string::npos;
            });
        });
    }
    void Stop() { listener.Stop(); }

  private:
    // The descriptor of a connection, for a plain client made of one.
    class Reach : public Connection {
      public:
        static int Of(const Connection& connection) { return (connection.*(&Reach::Descriptor))(); }
    };

    ServiceListener::HandlerFactory Factory() {
        return [this](Connection&, const PeerAddress&) -> std::unique_ptr<IServiceHandler> {
            if (!isConfigured) {
                return std::make_unique<Service>(nullptr, nullptr, nullptr);
            }
            Journal* journal = nullptr;
            {
                const std::lock_guard guard(mutex);
                journal = &journals.emplace_back();
            }
            return std::make_unique<Service>(std::make_unique<RecordingStorage>(*journal),
                                             std::make_unique<RecordingReaderFactory>(*journal),
                                             std::make_unique<RecordingWriterFactory>(*journal));
        };
    }
    ServiceListenerOptions Options() {
        ServiceListenerOptions options;
        options.stopGrace = std::chrono::minutes(1);
        options.onEvent = [this](const ServiceListenerEvent& event) {
            const std::lock_guard guard(mutex);
            events.push_back(event);
        };
        return options;
    }

    const Transport transport;
    const bool isConfigured;
    const Brantel::Tests::TemporaryFolder folder;
    const std::string path = folder.File("s");
    unsigned short port = 0;
    std::mutex mutex;
    // Stay where they are while others are added.
    std::deque<Journal> journals;
    std::vector<ServiceListenerEvent> events;
    ServiceListener listener;
};

// A request of a hostile client, beside a client in good order.
class ServerCase {
  public:
    ServerCase(const MatrixOperation& operation, Transport transport, Cell& cell)
        : operation(operation),
          cell(cell),
          server(transport),
          honestConnection(server.Connect()),
          honest(*honestConnection) {
        // Served before the other one connects, so that its objects come first.
        honest.MakeReader(1);
        honest.MakeWriter(2);
        hostile = server.ConnectPlain();
        Prepare(hostile);
    }

    bool IsClose() const { return operation.row == nullptr; }
    bool IsDestructor() const { return operation.name.ends_with("_Destructor"); }
    // Where the server calls nothing that could fail or wait.
    bool CallsNothing() const { return IsClose() || IsDestructor(); }
    Request RightRequest() const {
        return IsClose() ? FromText<Request>("operation: CLOSE_CONNECTION")
                         : RequestOf(*operation.row);
    }
    std::string RightBytes() const { return RightRequest().SerializeAsString(); }
    std::string RightAnswer() const { return IsClose() ? "" : ToText(ResponseOf(*operation.row)); }
    std::string RightCall() const { return IsClose() ? "" : operation.row->call; }
    // What the hostile client's objects were asked since it was ready.
    std::vector<std::string> Calls() { return Objects().Calls(); }
    Journal& Objects() { return server.JournalOf(1); }

    // A client with the reader 1 and the writer 2 that the operation needs, and nothing noted of
    // it.
    void Prepare(RawPeer& client) {
        Ask(client, RequestOf(RowOf(OPERATION_TrackStorage_GetRemainingSpace)));
        const bool isReaders =
            operation.name.starts_with("TrackReader_") && !operation.name.ends_with("Constructor");
        const bool isWriters = operation.name.starts_with("TrackWriter_");
        if (isReaders || isWriters) {
            Ask(client, RequestOf(RowOf(OPERATION_TrackReader_Constructor)));
        }
        if (isWriters && !operation.name.ends_with("Constructor")) {
            Ask(client, RequestOf(RowOf(OPERATION_TrackWriter_Constructor)));
        }
        Objects().Clear();
    }
    // The answer as text; "" when the connection ends instead.
    static std::string Hear(RawPeer& client) {
        std::string bytes;
        Response response;
        if (!ReadFrame(client, bytes) || !response.ParseFromString(bytes)) {
            return "";
        }
        return ToText(response);
    }
    static std::string Ask(RawPeer& client, const Request& request) {
        client.Write(Frame(request));
        return Hear(client);
    }

    // These bytes are served like the right request; the connection goes on.
    void ExpectServed(const std::string& bytes) {
        hostile.Write(bytes);
        ExpectAnswer(RightAnswer(), {RightCall()});
    }
    // The next answer, and what the objects were asked for it; a request that ends the connection
    // has none.
    void ExpectAnswer(const std::string& answer, const std::vector<std::string>& calls) {
        if (IsClose()) {
            ExpectEnd();
            return;
        }
        cell.ExpectEqual(Hear(hostile), answer, "the answer");
        cell.ExpectEqual(Joined(Calls()), Joined(calls), "the calls");
        ExpectNextServed();
    }
    void ExpectNextServed() {
        const OperationRow& next = RowOf(OPERATION_TrackStorage_GetTrackInfos);
        cell.ExpectEqual(Ask(hostile, RequestOf(next)), ToText(ResponseOf(next)),
                         "the next request");
    }
    // The connection ends without an answer; of its objects nothing was asked but to go.
    void ExpectEnd() { ExpectEnd(hostile); }
    void ExpectEnd(RawPeer& client) {
        cell.Expect(client.SeesTheEnd(), "an answer instead of the end");
        cell.Expect(server.ServesOnly(1), "the connection is still served");
        ExpectOnlyDeletions(0);
    }
    // After so many calls.
    void ExpectOnlyDeletions(std::size_t calls) {
        const std::vector<std::string> made = Calls();
        for (std::size_t i = calls; i < made.size(); ++i) {
            cell.Expect(made[i].ends_with(".delete()"), "asked for " + made[i]);
        }
        const auto deletions =
            static_cast<std::size_t>(std::count_if(made.begin(), made.end(), [](const auto& call) {
                return call.ends_with(".delete()");
            }));
        // The storage, two factories, and what the client made.
        const bool isReaders =
            operation.name.starts_with("TrackReader_") && !operation.name.ends_with("Constructor");
        cell.Expect(deletions >= 3 + (isReaders ? 1U : 0U), "objects are left over");
    }
    // The other client's calls have their answers, as have those of a new one.
    void ExpectOthersServed() {
        const OperationRow& any = RowOf(OPERATION_TrackStorage_GetRemainingSpace);
        Outputs own(false);
        (IsClose() ? any : *operation.row).stub(honest, own);
        cell.ExpectEqual(own.Changes(), IsClose() ? any.outputs : operation.row->outputs,
                         "the other client's call");
        if (IsDestructor()) {
            // For the next time.
            honest.MakeReader(1);
            honest.MakeWriter(2);
        }
        const auto connection = server.Connect();
        Stubs fresh(*connection);
        Outputs out(false);
        any.stub(fresh, out);
        cell.ExpectEqual(out.Changes(), any.outputs, "a new client's call");
    }

    static std::string Joined(const std::vector<std::string>& calls) {
        std::string text;
        for (const std::string& call : calls) {
            text += call + " ";
        }
        return text;
    }

    const MatrixOperation& operation;
    Cell& cell;
    RecordingService server;
    const std::unique_ptr<Connection> honestConnection;
    Stubs honest;
    RawPeer hostile{Descriptor()};
};

// A call with other arguments: every number 0, every message empty.
std::string WithoutArguments(const std::string& call) {
    if (call.empty()) {
        return "";
    }
    std::string text;
    int depth = 0;
    for (const char letter : call.substr(call.find('('))) {
        depth -= letter == '}' ? 1 : 0;
        if (depth == 0 && letter == '}') {
            text += "  ";
        }
        if (depth == 0 && std::isdigit(static_cast<unsigned char>(letter)) != 0) {
            text += text.back() == '0' ? "" : "0";
        } else if (depth == 0) {
            text += letter;
        }
        depth += letter == '{' ? 1 : 0;
    }
    return call.substr(0, call.find('(')) + text;
}

std::string FailureText(const MatrixOperation& operation, const std::string& text) {
    return ToText(FromText<Response>("is_success: false exception: \"" + text + "\" " +
                                     operation.name + " { }"));
}

void NoPart(const MatrixOperation& operation, Transport transport, Cell& cell) {
    ServerCase bare(operation, transport, cell);
    bare.hostile.Write(FrameOf("\x08" + Varint(operation.operation)));
    const bool hasHandle = !bare.IsClose() && !operation.name.starts_with("TrackStorage_") &&
                           !operation.name.ends_with("Constructor");
    if (hasHandle) {
        std::string answer =
            FailureText(operation, bare.IsDestructor() ? "Deleting an invalid remote object"
                                                       : "Accessing an invalid remote object");
        const std::string heard = ServerCase::Hear(bare.hostile);
        cell.Expect(heard.starts_with(answer.substr(0, answer.find("\" ") + 1)),
                    "the answer: " + heard);
        cell.ExpectEqual(ServerCase::Joined(bare.Calls()), "", "the calls");
        bare.ExpectNextServed();
    } else {
        bare.ExpectAnswer(bare.RightAnswer(), {WithoutArguments(bare.RightCall())});
    }
    bare.ExpectOthersServed();
}

void LackingFields(const MatrixOperation& operation, Transport transport, Cell& cell) {
    ServerCase lacking(operation, transport, cell);
    Request request;
    if (!lacking.IsClose()) {
        request = FromText<Request>("operation: OPERATION_" + operation.name + " " +
                                    operation.name + " { }");
    }
    lacking.hostile.Write(FrameOf(request.SerializePartialAsString()));
    if (request.IsInitialized()) {
        lacking.ExpectAnswer(lacking.RightAnswer(), {lacking.RightCall()});
    } else {
        cell.Expect(
            lacking.server.WasTold(Event::MessageRefused,
                                   "Received a BrantelStorageApi.Request that lacks required "
                                   "fields: " +
                                       request.InitializationErrorString()),
            "the report");
        lacking.ExpectEnd();
    }
    lacking.ExpectOthersServed();
}

void UnknownOperation(const MatrixOperation& operation, Transport transport, Cell& cell) {
    for (const int number : {0, 37, 128}) {
        ServerCase unknown(operation, transport, cell);
        const std::string known = "\x08" + Varint(operation.operation);
        std::string bytes = unknown.RightBytes();
        bytes.replace(0, known.size(), "\x08" + Varint(static_cast<std::size_t>(number)));
        unknown.hostile.Write(FrameOf(bytes) + Frame(unknown.RightRequest()));
        cell.Expect(
            unknown.server.WasTold(Event::MessageRefused, "lacks required fields: operation"),
            "the report");
        unknown.ExpectEnd();
        unknown.ExpectOthersServed();
    }
}

void OtherParts(const MatrixOperation& operation, Transport transport, Cell& cell) {
    ServerCase full(operation, transport, cell);
    Request request;
    for (const OperationRow& row : OperationTable()) {
        if (&row != operation.row) {
            request.MergeFrom(RequestOf(row));
        }
    }
    request.MergeFrom(full.RightRequest());
    full.ExpectServed(Frame(request));
    full.ExpectOthersServed();
}

void HalfRequest(const MatrixOperation& operation, Transport transport, Cell& cell) {
    const std::string whole = Frame(ServerCase(operation, transport, cell).RightRequest());
    const std::size_t step =
        Brantel::Tests::ProofSize(std::max<std::size_t>(whole.size() / 2, 1), 1);
    for (std::size_t cut = 1; cut < whole.size(); cut += step) {
        ServerCase half(operation, transport, cell);
        half.hostile.Write(whole.substr(0, cut));
        half.hostile.FinishWriting();
        cell.Expect(half.server.WasTold(Event::ConnectionLost, closedByTheOtherSide + " after "),
                    "the report");
        half.ExpectEnd();
        half.ExpectOthersServed();
    }
}

void BadFrame(const MatrixOperation& operation, Transport transport, Cell& cell) {
    ServerCase garbage(operation, transport, cell);
    const std::string bytes = garbage.RightBytes() + "\xFF\xFF\xFF";
    garbage.hostile.Write(FrameOf(bytes));
    cell.Expect(garbage.server.WasTold(Event::MessageRefused,
                                       "Received " + std::to_string(bytes.size()) +
                                           " bytes that are not a BrantelStorageApi.Request"),
                "the report of garbage");
    garbage.ExpectEnd();
    garbage.ExpectOthersServed();
    ServerCase tooLong(operation, transport, cell);
    tooLong.hostile.Write(Varint(Connection::defaultMessageLimit + 1) +
                          Frame(tooLong.RightRequest()));
    cell.Expect(tooLong.server.WasTold(Event::ConnectionLost,
                                       "message of 268435457 bytes is over the limit"),
                "the report of a length");
    // What it had sent beyond is not read, so that the end may come as a reset.
    cell.Expect(tooLong.server.ServesOnly(1), "the connection is still served");
    tooLong.ExpectOnlyDeletions(0);
    tooLong.ExpectOthersServed();
}

void ClientGone(const MatrixOperation& operation, Transport transport, Cell& cell) {
    ServerCase gone(operation, transport, cell);
    gone.hostile.Write(Frame(gone.RightRequest()));
    gone.hostile.Close();
    cell.Expect(gone.server.ServesOnly(1), "the connection is still served");
    const bool isCall = !gone.IsClose();
    if (isCall) {
        const std::vector<std::string> calls = gone.Calls();
        cell.ExpectEqual(calls.empty() ? "" : calls.front(), gone.RightCall(), "the call");
    }
    gone.ExpectOnlyDeletions(isCall ? 1 : 0);
    gone.ExpectOthersServed();
    // A reset may overtake the request, which is then served at most once.
    ServerCase reset(operation, transport, cell);
    reset.hostile.Write(Frame(reset.RightRequest()));
    Reset(reset.hostile);
    cell.Expect(reset.server.ServesOnly(1), "the connection is still served");
    const std::vector<std::string> calls = reset.Calls();
    const auto made = std::count(calls.begin(), calls.end(), reset.RightCall());
    cell.Expect(made <= 1, "served " + std::to_string(made) + " times");
    reset.ExpectOthersServed();
}

// Sends the bytes again and again until nothing is taken for a while: how often.
std::size_t SendUntilStuck(RawPeer& client, const std::string& bytes) {
    constexpr int whileMilliseconds = 10;
    constexpr std::size_t most = 200'000;
    std::size_t sent = 0;
    std::size_t offset = 0;
    while (sent < most) {
        const ssize_t size = ::send(client.Get(), bytes.data() + offset, bytes.size() - offset,
                                    MSG_NOSIGNAL | MSG_DONTWAIT);
        if (size < 0) {
            pollfd state{client.Get(), POLLOUT, 0};
            if (::poll(&state, 1, whileMilliseconds) == 0) {
                break;
            }
            continue;
        }
        offset += static_cast<std::size_t>(size);
        if (offset == bytes.size()) {
            offset = 0;
            ++sent;
        }
    }
    return sent;
}

void TakesNoAnswer(const MatrixOperation& operation, Transport transport, Cell& cell) {
    constexpr std::size_t most = 200'000;
    ServerCase full(operation, transport, cell);
    // The end of a connection is sent behind what it is to end.
    const std::string request = Frame(
        full.IsClose() ? RequestOf(RowOf(OPERATION_TrackStorage_ListTracks)) : full.RightRequest());
    const std::size_t sent = SendUntilStuck(full.hostile, request);
    cell.Expect(sent > 10 && sent < most, "taken: " + std::to_string(sent));
    full.ExpectOthersServed();
    full.hostile.Close();
    cell.Expect(full.server.ServesOnly(1), "the connection is still served");
    const std::vector<std::string> calls = full.Calls();
    const auto wanted = full.IsClose() ? RowOf(OPERATION_TrackStorage_ListTracks).call
                                       : std::string(full.RightCall());
    const auto made = static_cast<std::size_t>(std::count(calls.begin(), calls.end(), wanted));
    cell.Expect(made >= 1 && made <= sent + 1, "served " + std::to_string(made) + " times");
    full.ExpectOthersServed();
}

void ThrowsException(const MatrixOperation& operation, Transport transport, Cell& cell) {
    const std::function<void()> failures[] = {
        [] { throw std::runtime_error("the disk is gone"); },
        [] { throw std::logic_error("the disk is gone"); },
        [] { throw std::bad_alloc(); },
    };
    for (const auto& failure : failures) {
        ServerCase failing(operation, transport, cell);
        failing.Objects().FailWith(failure);
        if (failing.CallsNothing()) {
            // What fails comes before it, and changes nothing of it.
            const OperationRow& before = RowOf(OPERATION_TrackStorage_ListTracks);
            const std::string heard = ServerCase::Ask(failing.hostile, RequestOf(before));
            cell.Expect(heard.starts_with("is_success: false exception: "), "the answer: " + heard);
            failing.Objects().Clear();
            failing.Objects().FailWith(nullptr);
            failing.ExpectServed(Frame(failing.RightRequest()));
            failing.ExpectOthersServed();
            continue;
        }
        const std::string heard = ServerCase::Ask(failing.hostile, failing.RightRequest());
        const bool isMemory = heard.find("bad_alloc") != std::string::npos;
        const std::string wanted = std::string("is_success: false exception: ") +
                                   (isMemory ? "\"std::bad_alloc\"" : "\"the disk is gone\"");
        // Without memory the failure goes alone.
        cell.Expect(isMemory ? heard == wanted : heard.starts_with(wanted), "the answer: " + heard);
        cell.ExpectEqual(ServerCase::Joined(failing.Calls()), failing.RightCall() + " ",
                         "the calls");
        failing.Objects().FailWith(nullptr);
        failing.Objects().Clear();
        failing.ExpectServed(Frame(failing.RightRequest()));
        failing.ExpectOthersServed();
    }
}

void ThrowsNoException(const MatrixOperation& operation, Transport transport, Cell& cell) {
    ServerCase failing(operation, transport, cell);
    constexpr int noException = 42;
    failing.Objects().FailWith([] { throw noException; });
    const OperationRow& before = RowOf(OPERATION_TrackStorage_ListTracks);
    // Where nothing of the objects is called, a call before fails, and the request is not served.
    const std::string bytes = failing.CallsNothing()
                                  ? Frame(RequestOf(before)) + Frame(failing.RightRequest())
                                  : Frame(failing.RightRequest());
    failing.hostile.Write(bytes);
    cell.Expect(failing.server.WasTold(Event::HandlerFailed, "Exception of type int"),
                "the report");
    cell.Expect(failing.server.ServesOnly(1), "the connection is still served");
    cell.ExpectEqual(failing.Calls().front(),
                     failing.CallsNothing() ? before.call : failing.RightCall(), "the call");
    failing.ExpectOnlyDeletions(1);
    failing.ExpectOthersServed();
}

void Stopped(const MatrixOperation& operation, Transport transport, Cell& cell) {
    ServerCase stopped(operation, transport, cell);
    Gate called;
    Gate open;
    stopped.Objects().FailWith([&] {
        called.Open();
        open.Wait();
    });
    const OperationRow& before = RowOf(OPERATION_TrackStorage_ListTracks);
    const bool isBehind = stopped.CallsNothing();
    stopped.hostile.Write(isBehind ? Frame(RequestOf(before)) + Frame(stopped.RightRequest())
                                   : Frame(stopped.RightRequest()));
    cell.Expect(called.Wait(), "the call was not made");
    auto stopping = std::async(std::launch::async, [&] { stopped.server.Stop(); });
    cell.Expect(Eventually([&] {
                    try {
                        stopped.server.Connect();
                        return false;
                    } catch (const std::runtime_error&) {
                        return true;
                    }
                }),
                "it still accepts connections");
    open.Open();
    cell.ExpectEqual(ServerCase::Hear(stopped.hostile),
                     isBehind ? ToText(ResponseOf(before)) : stopped.RightAnswer(), "the answer");
    // What had come already may still be served.
    const std::string last = ServerCase::Hear(stopped.hostile);
    cell.Expect(last.empty() || (isBehind && last == stopped.RightAnswer()), "then: " + last);
    stopping.get();
    stopped.ExpectOnlyDeletions(1);
}

// The request with this handle in its part.
Request WithHandle(const Request& request, std::uint32_t handle) {
    Request changed = request;
    const auto& field = *Request::descriptor()->FindFieldByNumber(request.operation());
    auto& part = *changed.GetReflection()->MutableMessage(&changed, &field);
    part.GetReflection()->SetUInt32(&part, part.GetDescriptor()->FindFieldByName("object_handle"),
                                    handle);
    return changed;
}

// Storage, factories: not there. Readers, writers: no such handle, or that of the other kind.
void NothingThere(const MatrixOperation& operation, Transport transport, Cell& cell) {
    const bool hasHandle = operation.row != nullptr &&
                           !operation.name.starts_with("TrackStorage_") &&
                           !operation.name.ends_with("Constructor");
    if (!hasHandle) {
        const RecordingService server(transport, false);
        RawPeer client = server.ConnectPlain();
        const Request request = operation.row == nullptr
                                    ? FromText<Request>("operation: CLOSE_CONNECTION")
                                    : RequestOf(*operation.row);
        const std::string heard = ServerCase::Ask(client, request);
        const std::string wanted =
            "is_success: false exception: \"The service component has not been configured\"";
        cell.Expect(operation.row == nullptr ? heard.empty() : heard.starts_with(wanted),
                    "the answer: " + heard);
        cell.Expect(operation.row != nullptr || server.ServesOnly(0), "it is still served");
        return;
    }
    ServerCase wrong(operation, transport, cell);
    const std::string text = wrong.IsDestructor() ? "Deleting an invalid remote object"
                                                  : "Accessing an invalid remote object";
    const auto refuses = [&](std::uint32_t handle) {
        const std::string heard =
            ServerCase::Ask(wrong.hostile, WithHandle(wrong.RightRequest(), handle));
        cell.Expect(heard.starts_with("is_success: false exception: \"" + text + "\""),
                    "the answer: " + heard);
        cell.ExpectEqual(ServerCase::Joined(wrong.Calls()), "", "the calls");
    };
    refuses(0);
    refuses(3);
    refuses(0xFFFFFFFF);
    if (!wrong.IsDestructor() && operation.name.starts_with("TrackWriter_")) {
        refuses(1);  // a reader
    }
    wrong.ExpectServed(Frame(wrong.RightRequest()));
    wrong.ExpectOthersServed();
}

constexpr Fault faults[] = {
    {"no part", "the request has no part for its operation", NoPart},
    {"no fields", "the request's part lacks its required fields", LackingFields},
    {"unknown", "the request's operation is none of the protocol's, beside a part",
     UnknownOperation},
    {"all parts", "the request has the parts of all other operations, too", OtherParts},
    {"half request", "the client goes in the middle of the request", HalfRequest},
    {"bad frame", "the request is garbage, or over the limit", BadFrame},
    {"gone", "the client goes, in order or by a reset, before its answer", ClientGone},
    {"takes none", "the client goes on asking and takes no answer", TakesNoAnswer},
    {"exception", "the object throws: a failure of its own, an error, no memory", ThrowsException},
    {"throws 42", "the object throws what is no exception", ThrowsNoException},
    {"stop", "the server is stopped while the object works", Stopped},
    {"not there", "no such reader or writer, no storage", NothingThere},
};

}  // namespace

std::span<const Fault> ServerFaults() {
    return faults;
}

}  // namespace BrantelStorageApi
