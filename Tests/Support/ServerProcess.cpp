#include "Support/ServerProcess.h"

#include "Support/Waiting.h"

#include <libProtocolX/DataChunk.h>
#include <libProtocolX/IStorageReaderX.h>
#include <libProtocolX/IStorageWriterX.h>
#include <libTime/TimePoint.h>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace Brantel::Tests {

using ProtocolX::DataChunk;
using ProtocolX::StorageClientX;
using Time::TimePoint;

namespace {

// Everything until the other side has closed its end.
std::string ReadAll(int descriptor) {
    std::string text;
    std::array<char, 512> part{};
    for (;;) {
        const ssize_t size = read(descriptor, part.data(), part.size());
        if (size < 0 && errno == EINTR) {
            continue;
        }
        if (size <= 0) {
            return text;
        }
        text.append(part.data(), static_cast<std::size_t>(size));
    }
}

}  // namespace

ServerProcess::ServerProcess(const std::string& socketPath, const std::vector<std::string>& options)
    : socketPath(socketPath) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe2");
    }
    std::vector<std::string> command = {Program(),  "--listen",        "unix:" + socketPath,
                                        "--listen", "tcp:127.0.0.1:0", "--ready-fd",
                                        "3"};
    if (std::find(options.begin(), options.end(), "--data") == options.end()) {
        command.insert(command.end(), {"--engine", "memory"});
    }
    if (std::find(options.begin(), options.end(), "--config") == options.end()) {
        command.insert(command.end(), {"--config", ""});
    }
    if (std::find(options.begin(), options.end(), "--tcp-role") == options.end()) {
        command.insert(command.end(), {"--tcp-role", "admin"});
    }
    if (std::find(options.begin(), options.end(), "--http") == options.end()) {
        command.insert(command.end(), {"--http", "off"});
    }
    command.insert(command.end(), options.begin(), options.end());
    process = std::make_unique<ProgramRun>(
        command, std::vector<std::pair<std::string, std::string>>{}, ends[1]);
    close(ends[1]);
    std::istringstream text(ReadAll(ends[0]));
    close(ends[0]);
    for (std::string line; std::getline(text, line);) {
        addresses.push_back(line);
    }
    if (addresses.size() != 2) {
        throw std::runtime_error("The server did not start: " + process->Errors());
    }
    const std::string& tcp = addresses.at(1);
    port = static_cast<unsigned short>(std::stoul(tcp.substr(tcp.rfind(':') + 1)));
}

std::string ServerProcess::Program() {
    return BRANTEL_STORAGED;
}

std::vector<std::string> ServerProcess::OnFolder(const std::string& folder,
                                                 const std::string& preparation) {
    return {"--data", folder, "--prepare", preparation, "--keep-free", "0"};
}

int ServerProcess::Stop() {
    return Stop(SIGTERM);
}

int ServerProcess::Stop(int signal) {
    process->Signal(signal);
    return process->Wait(endLimit);
}

std::unique_ptr<StorageClientX> ServerProcess::ConnectOverUnix() const {
    auto client = std::make_unique<StorageClientX>();
    if (!client->ConnectToSlave(socketPath)) {
        throw std::runtime_error("Could not connect to " + socketPath);
    }
    return client;
}

std::unique_ptr<StorageClientX> ServerProcess::ConnectOverTcp() const {
    constexpr unsigned int timeoutMilliseconds = 60'000;
    auto client = std::make_unique<StorageClientX>();
    if (!client->ConnectToSlave("127.0.0.1", static_cast<short>(port), timeoutMilliseconds)) {
        throw std::runtime_error("Could not connect to port " + std::to_string(port));
    }
    return client;
}

long CreateTrack(StorageClientX& client, long size) {
    StorageClientX::TrackParameters wanted;
    wanted.size = size;
    const StorageClientX::TrackParameters track = client.CreateTrack(wanted);
    if (!Eventually([&] {
            return client.GetCommandInfo(track.commandId).type == StorageClientX::FINISHED;
        })) {
        throw std::runtime_error("The track was not created");
    }
    return track.id;
}

void AppendChunk(StorageClientX& client, long track, long nanoseconds, const std::string& bytes) {
    DataChunk chunk;
    chunk.SetTimePoint(TimePoint::Nanoseconds(nanoseconds));
    chunk.SetDuration(TimePoint::Nanoseconds(1));
    chunk.SetData("block", bytes);
    client.GetTrackWriter(track)->Append(chunk);
}

std::string ReadChunk(StorageClientX& client, long track, long nanoseconds) {
    DataChunk chunk;
    const bool found =
        client.GetTrackReader(track, 1)->GetChunk(chunk, TimePoint::Nanoseconds(nanoseconds), {});
    return found ? chunk.GetData("block") : "not found";
}

std::vector<long> TimesOf(StorageClientX& client, long track) {
    std::vector<long> times;
    ProtocolX::IStorageReaderX& reader = *client.GetTrackReader(track, 1);
    for (TimePoint time = reader.FirstTimePoint(); time >= TimePoint();
         time = reader.NextTimePoint(time)) {
        times.push_back(time.ToNanoseconds());
    }
    return times;
}

}  // namespace Brantel::Tests
