#include "Bench/BenchServer.h"

#include "Bench/BareExchange.h"
#include "Bench/KeepingStorage.h"
#include "Bench/ScatteredHeap.h"

#include <libProtocolX/rpc/Service.h>
#include <libServices/FileDescriptorServiceConnection.h>
#include <libServices/SpinGovernor.h>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <thread>

namespace Brantel::Bench {

namespace {

void Check(bool good, const char* what) {
    if (!good) {
        throw std::runtime_error(std::string("The benchmark's server failed: ") + what);
    }
}

sockaddr_un UnixAddress(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    return address;
}

void AcceptForEver(int listening, const std::function<void(int)>& serve) {
    for (unsigned accepted = 0;; ++accepted) {
        const int fd = ::accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            continue;
        }
        SetSocketOptions(fd);
        std::thread([fd, serve, accepted] {
            const ScatteredHeap heap(accepted);
            serve(fd);
        }).detach();
    }
}

void ServeProtocol(int fd, Services::SpinGovernor& governor) {
    Services::FileDescriptorServiceConnection connection(
        fd, Services::FileDescriptorServiceConnection::defaultMessageLimit, governor);
    BrantelStorageApi::Service service(std::make_unique<SizeStorage>(),
                                       std::make_unique<ReaderFactory>(),
                                       std::make_unique<WriterFactory>());
    service.Handle(connection);
}

}  // namespace

void KeepOnProcessor(int processor) {
    cpu_set_t processors;
    CPU_ZERO(&processors);
    if (processor == BenchServer::anyProcessor) {
        for (int i = 0; i < CPU_SETSIZE; ++i) {
            CPU_SET(i, &processors);
        }
    } else {
        CPU_SET(processor, &processors);
    }
    Check(::sched_setaffinity(0, sizeof(processors), &processors) == 0, "sched_setaffinity");
}

void SetSocketOptions(int fd) {
    const int sendBuffer = 212992;
    ::setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &sendBuffer, sizeof(sendBuffer));
    const int on = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
}

int ListenUnix(const std::string& path) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = UnixAddress(path);
    Check(::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0, "bind");
    Check(::listen(fd, 4096) == 0, "listen");
    return fd;
}

int ListenTcp(int& port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    Check(::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0, "bind");
    Check(::listen(fd, 4096) == 0, "listen");
    socklen_t size = sizeof(address);
    Check(::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) == 0, "getsockname");
    port = ntohs(address.sin_port);
    return fd;
}

int ConnectSocket(const std::string& unixPath) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = UnixAddress(unixPath);
    Check(::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0,
          "connect");
    SetSocketOptions(fd);
    return fd;
}

int ConnectSocket(int loopbackPort) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(loopbackPort));
    Check(::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0,
          "connect");
    SetSocketOptions(fd);
    return fd;
}

BenchServer::BenchServer(int processor, int pollMicroseconds) {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "brantel-bench-XXXXXX").string();
    Check(::mkdtemp(pattern.data()) != nullptr, "mkdtemp");
    folder = pattern;
    const int bareUnix = ListenUnix(folder + "/bare");
    const int protocolUnix = ListenUnix(folder + "/protocol");
    const int bareTcp = ListenTcp(barePort);
    const int protocolTcp = ListenTcp(protocolPort);
    child = ::fork();
    Check(child >= 0, "fork");
    if (child == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        KeepOnProcessor(processor);
        Services::SpinGovernor governor{std::chrono::microseconds(pollMicroseconds)};
        const auto protocol = [&governor](int fd) { ServeProtocol(fd, governor); };
        BareBell bell;
        const auto bare = [&bell](int fd) { ServeBareExchange(fd, "", bell); };
        std::thread([&] { AcceptForEver(bareUnix, bare); }).detach();
        std::thread([&] { AcceptForEver(bareTcp, bare); }).detach();
        std::thread([&] { AcceptForEver(protocolUnix, protocol); }).detach();
        AcceptForEver(protocolTcp, protocol);
    }
    for (const int fd : {bareUnix, protocolUnix, bareTcp, protocolTcp}) {
        ::close(fd);
    }
}

BenchServer::~BenchServer() {
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
}

int BenchServer::ConnectBare(Transport transport) const {
    return transport == Transport::Unix ? ConnectSocket(folder + "/bare") : ConnectSocket(barePort);
}

int BenchServer::ConnectProtocol(Transport transport) const {
    return transport == Transport::Unix ? ConnectSocket(folder + "/protocol")
                                        : ConnectSocket(protocolPort);
}

}  // namespace Brantel::Bench
