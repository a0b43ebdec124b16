// Makes a number of calls of one kind through the stubs to a service in a child process, over a
// pair of Unix sockets, without polling: what the gates count (instructions, system calls, page
// faults).
//
//   CallCost ping|append|read CALLS SIZE
//
// Prints the minor page faults of the second half of the calls, of both processes.
#include "Bench/KeepingStorage.h"

#include <libProtocolX/rpc/ClientTrackReader.h>
#include <libProtocolX/rpc/ClientTrackStorage.h>
#include <libProtocolX/rpc/ClientTrackWriter.h>
#include <libProtocolX/rpc/Service.h>
#include <libServices/FileDescriptorServiceConnection.h>
#include <libServices/NativeMutex.h>
#include <libServices/SpinGovernor.h>

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>

namespace {

using Brantel::Services::FileDescriptorServiceConnection;

// The minor page faults of a process so far: the tenth field of its status line, whose second is
// the program's name.
long MinorFaults(pid_t process) {
    std::ifstream status("/proc/" + std::to_string(process) + "/stat");
    std::string field;
    for (int i = 0; i < 10; ++i) {
        status >> field;
    }
    return std::strtol(field.c_str(), nullptr, 10);
}

void Serve(int fd, Brantel::Services::SpinGovernor& noPolling) {
    FileDescriptorServiceConnection connection(
        fd, FileDescriptorServiceConnection::defaultMessageLimit, noPolling);
    BrantelStorageApi::Service service(std::make_unique<Brantel::Bench::SizeStorage>(),
                                       std::make_unique<Brantel::Bench::ReaderFactory>(),
                                       std::make_unique<Brantel::Bench::WriterFactory>());
    service.Handle(connection);
}

// Makes the calls; prints the page faults that the second half of them took.
template <typename Call>
void Repeat(long calls, pid_t server, const Call& call) {
    long before = 0;
    for (long i = 0; i < calls; ++i) {
        if (i == calls / 2) {
            before = MinorFaults(::getpid()) + MinorFaults(server);
        }
        call();
    }
    std::cout << MinorFaults(::getpid()) + MinorFaults(server) - before << '\n';
}

void Run(FileDescriptorServiceConnection& connection, const std::string& kind, long calls,
         std::size_t size, pid_t server) {
    Brantel::Services::NativeMutex mutex;
    BrantelStorageApi::ClientTrackStorage storage(connection, mutex);
    BrantelStorageApi::ClientTrackWriter writer(connection, mutex, Brantel::Bench::keepingTrack);
    BrantelStorageApi::ClientTrackReader reader(connection, mutex, Brantel::Bench::keepingTrack);
    Protocol::Chunk chunk;
    chunk.mutable_timecode()->set_nanoseconds(1);
    chunk.mutable_duration()->set_nanoseconds(1);
    auto* item = chunk.mutable_data()->add_items();
    item->set_key("data");
    item->mutable_value()->assign(size, 'x');
    Protocol::Chunk answer;
    Protocol::TimePoint timecode;
    timecode.set_nanoseconds(size);
    const Protocol::KeyList keys;
    long trackSize = 0;
    bool found = false;
    if (kind == "ping") {
        Repeat(calls, server, [&] { storage.GetTrackSize(1, trackSize); });
    } else if (kind == "append") {
        Repeat(calls, server, [&] { writer.Append(chunk); });
    } else {
        Repeat(calls, server, [&] { reader.GetChunk(timecode, keys, answer, found); });
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "usage: CallCost ping|append|read CALLS SIZE\n";
        return 2;
    }
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
        return 1;
    }
    Brantel::Services::SpinGovernor noPolling{std::chrono::nanoseconds(0)};
    const pid_t server = ::fork();
    if (server == 0) {
        ::close(ends[0]);
        Serve(ends[1], noPolling);
        return 0;
    }
    ::close(ends[1]);
    {
        FileDescriptorServiceConnection connection(
            ends[0], FileDescriptorServiceConnection::defaultMessageLimit, noPolling);
        Run(connection, argv[1], std::strtol(argv[2], nullptr, 10),
            std::strtoul(argv[3], nullptr, 10), server);
    }
    ::waitpid(server, nullptr, 0);
    return 0;
}
