#include "Support/RawClient.h"

#include "Support/Frames.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <stdexcept>

namespace Brantel::Tests {

namespace {

template <class Address>
Descriptor Connect(const Address& address) {
    Descriptor socket(::socket(reinterpret_cast<const sockaddr&>(address).sa_family,
                               SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (::connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) !=
        0) {
        throw std::system_error(errno, std::generic_category(), "Could not connect");
    }
    return socket;
}

Descriptor Connect(const ServerProcess& server, Transport transport) {
    if (transport == Transport::Unix) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, server.SocketPath().c_str(), sizeof(address.sun_path) - 1);
        return Connect(address);
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(server.Port());
    return Connect(address);
}

}  // namespace

RawClient::RawClient(const ServerProcess& server, Transport transport)
    : RawPeer(Connect(server, transport)) {}

void RawClient::Send(const BrantelStorageApi::Request& request) {
    Write(Frame(request));
}

void RawClient::Announce(std::size_t size, std::size_t sent) {
    Write(Varint(size) + std::string(sent, '\0'));
}

BrantelStorageApi::Response RawClient::Receive() {
    constexpr unsigned more = 0x80;
    constexpr unsigned bitsPerByte = 7;
    std::size_t size = 0;
    for (unsigned shift = 0;; shift += bitsPerByte) {
        const std::string byte = Read(1);
        if (byte.empty()) {
            throw std::runtime_error("The connection ended");
        }
        const auto value = static_cast<unsigned char>(byte.front());
        size |= static_cast<std::size_t>(value % more) << shift;
        if (value < more) {
            break;
        }
    }
    BrantelStorageApi::Response response;
    if (!response.ParseFromString(Read(size))) {
        throw std::runtime_error("The answer is not valid");
    }
    return response;
}

BrantelStorageApi::Response RawClient::Ask(const BrantelStorageApi::Request& request) {
    Send(request);
    return Receive();
}

std::string RawClient::AskForTracks() {
    BrantelStorageApi::Request request;
    request.set_operation(BrantelStorageApi::OPERATION_TrackStorage_ListTracks);
    const BrantelStorageApi::Response response = Ask(request);
    return response.is_success() ? "done" : response.exception();
}

std::uint32_t RawClient::OpenReader(long track) {
    BrantelStorageApi::Request request;
    request.set_operation(BrantelStorageApi::OPERATION_TrackReader_Constructor);
    request.mutable_trackreader_constructor()->set_trackid(track);
    return Ask(request).trackreader_constructor().object_handle();
}

}  // namespace Brantel::Tests
