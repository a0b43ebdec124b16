#include "FaultProxy.h"

#include "Support/Frames.h"

#include <BrantelStorageApiMessages.pb.h>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <system_error>

namespace Brantel::Tests {

namespace {

constexpr std::size_t largestPiece = std::size_t{64} * 1024;
constexpr std::size_t mostKept = std::size_t{1024} * 1024;

Descriptor ListenOn(const std::string& path) {
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(static_cast<char*>(address.sun_path), sizeof(address.sun_path) - 1);
    if (::bind(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        ::listen(socket.Get(), SOMAXCONN) != 0) {
        throw std::system_error(errno, std::system_category(), "listen on " + path);
    }
    return socket;
}

Descriptor ListenOnPort(unsigned short& port) {
    Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    if (::bind(socket.Get(), reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
        ::listen(socket.Get(), SOMAXCONN) != 0 ||
        ::getsockname(socket.Get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        throw std::system_error(errno, std::system_category(), "listen on 127.0.0.1");
    }
    port = ntohs(address.sin_port);
    return socket;
}

// Every write leaves at once.
void SendAtOnce(const RawPeer& peer) {
    const int on = 1;
    ::setsockopt(peer.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
}

void CloseWithReset(RawPeer& peer) {
    const linger now{1, 0};
    ::setsockopt(peer.Get(), SOL_SOCKET, SO_LINGER, &now, sizeof(now));
    peer.Close();
}

bool IsReadable(const pollfd& state) {
    return (state.revents & (POLLIN | POLLHUP | POLLERR)) != 0;
}

// Whether these are the bytes of an Append, whole.
bool IsAppend(const std::string& piece) {
    std::size_t size = 0;
    std::size_t lengthSize = 0;
    constexpr unsigned more = 0x80;
    constexpr unsigned bitsPerByte = 7;
    do {
        if (lengthSize == piece.size()) {
            return false;
        }
        size |= static_cast<std::size_t>(static_cast<unsigned char>(piece[lengthSize]) % more)
                << (bitsPerByte * lengthSize);
    } while (static_cast<unsigned char>(piece[lengthSize++]) >= more);
    BrantelStorageApi::Request request;
    return piece.size() == lengthSize + size && request.ParseFromString(piece.substr(lengthSize)) &&
           request.operation() == BrantelStorageApi::OPERATION_TrackWriter_Append;
}

}  // namespace

const char* NameOf(ProxyFault fault) {
    constexpr std::array names = {"passed as it was",
                                  "split in two",
                                  "byte by byte",
                                  "delayed",
                                  "stalled",
                                  "swallowed, then closed",
                                  "truncated, then closed",
                                  "reset",
                                  "sent again on a second connection",
                                  "sent again after the end",
                                  "answered twice",
                                  "answered with the one before",
                                  "append answered by nobody"};
    static_assert(names.size() == static_cast<std::size_t>(ProxyFault::Count));
    return names.at(static_cast<std::size_t>(fault));
}

bool IsLie(ProxyFault fault) {
    return fault == ProxyFault::AnswerRepeated || fault == ProxyFault::AnswerStale ||
           fault == ProxyFault::AppendForged;
}

FaultProxy::FaultProxy(const ServerProcess& server, Transport transport, std::uint64_t seed,
                       const ProxyRates& rates)
    : server(server),
      transport(transport),
      rates(rates),
      listener(transport == Transport::Unix ? ListenOn(folder.File("proxy")) : ListenOnPort(port)),
      stop(::eventfd(0, EFD_CLOEXEC)),
      random(seed),
      thread([this] { Run(); }) {}

FaultProxy::~FaultProxy() {
    ::eventfd_write(stop.Get(), 1);
    thread.join();
}

bool FaultProxy::AwaitClient() const {
    std::array<pollfd, 2> states = {pollfd{listener.Get(), POLLIN, 0},
                                    pollfd{stop.Get(), POLLIN, 0}};
    while (::poll(states.data(), states.size(), -1) < 0) {
    }
    return states[1].revents == 0;
}

void FaultProxy::Run() {
    while (AwaitClient()) {
        RawPeer client(Descriptor(::accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC)));
        Relay(client);
    }
}

void FaultProxy::Relay(RawPeer& client) {
    RawClient serving(server, transport);
    SendAtOnce(client);
    SendAtOnce(serving);
    sent.clear();
    isKept = true;
    lastAnswer.clear();
    After after = After::GoOn;
    while (after == After::GoOn) {
        std::array<pollfd, 3> states = {pollfd{client.Get(), POLLIN, 0},
                                        pollfd{serving.Get(), POLLIN, 0},
                                        pollfd{stop.Get(), POLLIN, 0}};
        if (::poll(states.data(), states.size(), -1) < 0) {
            continue;
        }
        if (states[2].revents != 0) {
            return;
        }
        if (IsReadable(states[1])) {
            after = Pass(serving, client, false);
        }
        if (after == After::GoOn && IsReadable(states[0])) {
            after = Pass(client, serving, true);
        }
    }
    if (after == After::Reset) {
        CloseWithReset(client);
        CloseWithReset(serving);
    }
}

FaultProxy::After FaultProxy::Pass(RawPeer& from, RawPeer& to, bool isRequest) {
    std::string piece(largestPiece, '\0');
    const ssize_t size = ::recv(from.Get(), piece.data(), piece.size(), 0);
    if (size <= 0) {
        return After::End;
    }
    piece.resize(static_cast<std::size_t>(size));
    const ProxyFault fault = Draw(piece, isRequest);
    ++counts.at(static_cast<std::size_t>(fault));
    const After after = IsLie(fault) ? Lie(fault, piece, from, to) : Do(fault, piece, from, to);
    if (isRequest) {
        isKept = isKept && sent.size() < mostKept;
        sent += isKept ? piece : "";
    }
    if (!isRequest) {
        lastAnswer = piece;
    }
    return after;
}

bool FaultProxy::CanBefall(ProxyFault fault, const std::string& piece, bool isRequest) const {
    switch (fault) {
        case ProxyFault::Doubled:
        case ProxyFault::DoubledLate: return isRequest && isKept;
        case ProxyFault::AnswerRepeated: return !isRequest;
        case ProxyFault::AnswerStale: return !isRequest && !lastAnswer.empty();
        case ProxyFault::AppendForged: return isRequest && IsAppend(piece);
        default: return true;
    }
}

ProxyFault FaultProxy::Draw(const std::string& piece, bool isRequest) {
    for (std::size_t i = 1; i < rates.size(); ++i) {
        const auto fault = static_cast<ProxyFault>(i);
        if (rates.at(i) != 0 && CanBefall(fault, piece, isRequest) && Below(rates.at(i)) == 0) {
            return fault;
        }
    }
    return ProxyFault::Passed;
}

FaultProxy::After FaultProxy::Do(ProxyFault fault, const std::string& piece, RawPeer& from,
                                 RawPeer& to) {
    constexpr std::size_t longestPieces = 64;
    constexpr std::size_t longestDelay = 1000;
    constexpr std::size_t longestStall = 20'000;
    const std::size_t cut = Below(piece.size() + 1);
    const auto wait = [this](std::size_t microseconds) {
        std::this_thread::sleep_for(std::chrono::microseconds(Below(microseconds)));
    };
    switch (fault) {
        case ProxyFault::Split:
            to.TryWrite(piece.substr(0, cut));
            std::this_thread::yield();
            return to.TryWrite(piece.substr(cut)) ? After::GoOn : After::End;
        case ProxyFault::ByteByByte:
            for (std::size_t i = 0; i < std::min(piece.size(), longestPieces); ++i) {
                to.TryWrite(piece.substr(i, 1));
            }
            to.TryWrite(piece.substr(std::min(piece.size(), longestPieces)));
            return After::GoOn;
        case ProxyFault::Delayed: wait(longestDelay); break;
        case ProxyFault::Stalled: wait(longestStall); break;
        case ProxyFault::Swallowed: return After::End;
        case ProxyFault::Truncated: to.TryWrite(piece.substr(0, cut)); return After::End;
        case ProxyFault::Reset: to.TryWrite(piece.substr(0, cut)); return After::Reset;
        case ProxyFault::Doubled: SendAgain(sent); break;
        case ProxyFault::DoubledLate:
            to.Close();
            from.Close();
            SendAgain(sent + piece);
            return After::End;
        default: break;
    }
    return to.TryWrite(piece) ? After::GoOn : After::End;
}

FaultProxy::After FaultProxy::Lie(ProxyFault fault, const std::string& piece, RawPeer& from,
                                  RawPeer& to) {
    if (fault == ProxyFault::AnswerRepeated) {
        to.TryWrite(piece + piece);
    } else if (fault == ProxyFault::AnswerStale) {
        to.TryWrite(lastAnswer);
    } else {
        BrantelStorageApi::Response done;
        done.set_is_success(true);
        done.mutable_trackwriter_append();
        from.TryWrite(Frame(done));
    }
    return After::GoOn;
}

// Returns when the server has served it and ended the connection.
void FaultProxy::SendAgain(const std::string& requests) const {
    RawClient second(server, transport);
    std::thread sending([&] {
        second.TryWrite(requests);
        second.FinishWriting();
    });
    std::string answers(largestPiece, '\0');
    while (::recv(second.Get(), answers.data(), answers.size(), 0) > 0) {
    }
    sending.join();
}

}  // namespace Brantel::Tests
