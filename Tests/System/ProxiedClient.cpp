#include "ProxiedClient.h"

#include <libProtocolX/IStorageReaderX.h>
#include <libProtocolX/IStorageWriterX.h>
#include <libServices/SocketDisconnected.h>
#include <libTime/TimePoint.h>

#include <algorithm>
#include <cctype>
#include <exception>
#include <stdexcept>

namespace Brantel::Tests {

namespace {

using ProtocolX::DataChunk;
using ProtocolX::StorageClientX;
using Time::TimePoint;

TimePoint At(long nanoseconds) {
    return TimePoint::Nanoseconds(nanoseconds);
}

// A text with N for every number, so that equal failures are counted together.
std::string WithoutNumbers(const std::string& text) {
    std::string result;
    for (const char letter : text) {
        const bool isDigit = std::isdigit(static_cast<unsigned char>(letter)) != 0;
        if (!isDigit) {
            result += letter;
        } else if (result.empty() || result.back() != 'N') {
            result += 'N';
        }
    }
    return result;
}

}  // namespace

std::string TrackName(long track) {
    return "track number " + std::to_string(track);
}

DataChunk ChunkOf(long track, long nanoseconds) {
    constexpr std::size_t usual = 600;
    constexpr std::size_t large = 150'000;
    constexpr std::size_t oneIn = 1000;
    constexpr std::uint64_t tracksApart = 1'000'003;
    std::mt19937_64 random(static_cast<std::uint64_t>(track) * tracksApart +
                           static_cast<std::uint64_t>(nanoseconds));
    const std::size_t size = 1 + random() % (random() % oneIn == 0 ? large : usual);
    DataChunk chunk;
    chunk.SetTimePoint(At(nanoseconds));
    chunk.SetDuration(At(1));
    chunk.SetProperty("number", std::to_string(track) + ":" + std::to_string(nanoseconds));
    std::string bytes(size, static_cast<char>(random()));
    for (std::size_t i = 0; i < size; i += sizeof(std::uint64_t)) {
        bytes[i] = static_cast<char>(random());
    }
    chunk.SetData("block", bytes);
    return chunk;
}

ProxiedClient::ProxiedClient(const FaultProxy& proxy, const std::vector<ProxiedTrack>& tracks,
                             std::size_t own, std::uint64_t seed)
    : proxy(proxy), tracks(tracks), own(tracks.at(own)), random(seed) {}

void ProxiedClient::Run(std::uint64_t wanted) {
    // A server that answers nothing any more must not keep the test for ever.
    const std::uint64_t most = 20 * wanted + 1000;
    while (answered < wanted && calls < most) {
        if (isReady) {
            Call([this] { DoAny(); });
        } else {
            Connect();
        }
    }
    Expect(answered >= wanted, "only " + std::to_string(answered) + " calls were answered");
    // The fate of the last append is known before the end.
    while (!isReady && calls < 2 * most) {
        Connect();
    }
    client.reset();
}

void ProxiedClient::Violate(const std::string& what) {
    constexpr std::size_t enough = 5;
    ++violationCount;
    if (violations.size() < enough) {
        violations.push_back("track " + std::to_string(own.id) + ": " + what);
    }
}

void ProxiedClient::Expect(bool isRight, const std::string& what) {
    if (!isRight) {
        Violate(what);
    }
}

// One call or a few; whatever it throws ends the connection, and only a lost one is no violation.
void ProxiedClient::Call(const std::function<void()>& work) {
    ++calls;
    try {
        work();
        ++answered;
    } catch (const SocketDisconnected& lost) {
        ++failures[WithoutNumbers(lost.what())];
        isReady = false;
    } catch (const std::exception& failure) {
        ++failures[WithoutNumbers(failure.what())];
        Violate(std::string("thrown: ") + failure.what());
        isReady = false;
    }
}

void ProxiedClient::Connect() {
    constexpr unsigned int timeoutMilliseconds = 60'000;
    client = std::make_unique<StorageClientX>();
    const bool isConnected =
        proxy.GetTransport() == Transport::Unix
            ? client->ConnectToSlave(proxy.Path())
            : client->ConnectToSlave("127.0.0.1", static_cast<short>(proxy.Port()),
                                     timeoutMilliseconds);
    Expect(isConnected, "could not connect");
    ++connections;
    isReady = true;
    Call([this] { OpenWorkers(); });
    if (isReady && isUnknown) {
        Call([this] { FindOut(); });
    }
}

// The writer is given when the connection before has ended at the server, with all that was sent
// over it: what it left is final then.
void ProxiedClient::OpenWorkers() {
    const std::string taken =
        "Exception from server: Track " + std::to_string(own.id) + " already has a writer";
    for (bool isOpen = false; !isOpen;) {
        try {
            client->GetTrackWriter(own.id);
            isOpen = true;
        } catch (const SocketDisconnected&) {
            throw;
        } catch (const std::runtime_error& refusal) {
            if (refusal.what() != taken) {
                throw;
            }
            ++calls;
            ++failures[WithoutNumbers(taken)];
        }
    }
    client->GetTrackReader(own.id, 1);
}

void ProxiedClient::FindOut() {
    DataChunk chunk;
    if (client->GetTrackReader(own.id, 1)->GetChunk(chunk, At(lastTime), {})) {
        ExpectChunk(true, chunk, lastTime);
        times.push_back(lastTime);
        ++found;
    }
    isUnknown = false;
}

void ProxiedClient::DoAny() {
    constexpr std::size_t parts = 20;
    const std::size_t part = Below(parts);
    if (part < 5) {
        Append();
    } else if (part < 11) {
        ReadOne();
    } else if (part < 14) {
        Step();
    } else if (part < 18) {
        AskForTrack();
    } else {
        Count();
    }
}

void ProxiedClient::Append() {
    constexpr std::size_t longestGap = 1000;
    lastTime += 2 + static_cast<long>(Below(longestGap));
    isUnknown = true;
    client->GetTrackWriter(own.id)->Append(ChunkOf(own.id, lastTime));
    isUnknown = false;
    times.push_back(lastTime);
    ++appended;
}

long ProxiedClient::AnyTime() {
    constexpr long behind = 100;
    return static_cast<long>(Below(static_cast<std::size_t>(lastTime + behind)));
}

void ProxiedClient::ExpectChunk(bool isFound, const DataChunk& chunk, long nanoseconds) {
    if (!isFound) {
        Violate("no chunk at " + std::to_string(nanoseconds));
        return;
    }
    const DataChunk wanted = ChunkOf(own.id, nanoseconds);
    Expect(chunk.GetTimePoint() == wanted.GetTimePoint() && chunk.IsEqual(wanted) &&
               chunk.GetData("block") == wanted.GetData("block"),
           "the chunk at " + std::to_string(nanoseconds) + " is " + chunk.ToString());
}

// A chunk at, behind or in front of a time point.
void ProxiedClient::ReadOne() {
    ProtocolX::IStorageReaderX& reader = *client->GetTrackReader(own.id, 1);
    DataChunk chunk;
    const std::size_t way = Below(4);
    if (way < 2 && !times.empty()) {
        const long time = times.at(Below(times.size()));
        ExpectChunk(reader.GetChunk(chunk, At(time), {}), chunk, time);
        return;
    }
    const long time = AnyTime();
    const bool isNext = way != 3;
    const auto place = isNext ? std::upper_bound(times.begin(), times.end(), time)
                              : std::lower_bound(times.begin(), times.end(), time);
    const bool isFound = isNext ? reader.GetNextChunk(chunk, At(time), {})
                                : reader.GetPreviousChunk(chunk, At(time), {});
    if (place == (isNext ? times.end() : times.begin())) {
        Expect(!isFound, "a chunk beyond the ends");
    } else {
        ExpectChunk(isFound, chunk, isNext ? *place : *(place - 1));
    }
}

void ProxiedClient::Step() {
    ProtocolX::IStorageReaderX& reader = *client->GetTrackReader(own.id, 1);
    const long time = AnyTime();
    if (Below(2) == 0) {
        const auto next = std::upper_bound(times.begin(), times.end(), time);
        const long wanted = next == times.end() ? -1 : *next;
        const long got = reader.NextTimePoint(At(time)).ToNanoseconds();
        Expect(got == wanted, "behind " + std::to_string(time) + " comes " + std::to_string(got));
    } else {
        const auto next = std::lower_bound(times.begin(), times.end(), time);
        const long wanted = next == times.begin() ? -1 : *(next - 1);
        const long got = reader.PreviousTimePoint(At(time)).ToNanoseconds();
        Expect(got == wanted,
               "in front of " + std::to_string(time) + " comes " + std::to_string(got));
    }
}

void ProxiedClient::AskForTrack() {
    const ProxiedTrack& track = tracks.at(Below(tracks.size()));
    switch (Below(4)) {
        case 0: {
            const long size = client->GetTrackSize(track.id);
            Expect(size == track.size,
                   "the size of track " + std::to_string(track.id) + " is " + std::to_string(size));
            break;
        }
        case 1: {
            const auto properties = client->GetTrackProperties(track.id);
            const StorageClientX::Properties wanted = {{"name", TrackName(track.id)}};
            Expect(properties == wanted, "the properties of track " + std::to_string(track.id) +
                                             " are " + std::to_string(properties.size()) +
                                             " others");
            break;
        }
        case 2:
            Expect(client->GetTrackReader(own.id, 1)->GetTrackId() == own.id, "another reader");
            break;
        default:
            Expect(client->GetTrackWriter(own.id)->GetTrackId() == own.id, "another writer");
            break;
    }
}

void ProxiedClient::Count() {
    const long in = AnyTime();
    const long out = AnyTime();
    const long between = std::lower_bound(times.begin(), times.end(), out) -
                         std::lower_bound(times.begin(), times.end(), in);
    const long wanted = std::max(between, 0L);
    const long count =
        Below(2) == 0 ? client->GetNumberOfChunks(own.id, At(in), At(out))
                      : client->GetAccumulatedDuration(own.id, At(in), At(out)).ToNanoseconds();
    Expect(count == wanted, "between " + std::to_string(in) + " and " + std::to_string(out) +
                                " are " + std::to_string(count) + " chunks");
}

void ProxiedClient::CheckTrack(StorageClientX& direct) {
    ProtocolX::IStorageReaderX& reader = *direct.GetTrackReader(own.id, 1);
    DataChunk chunk;
    TimePoint position = At(-1);
    for (const long time : times) {
        if (!reader.GetNextChunk(chunk, position, {})) {
            Violate("an answered chunk is lost, at " + std::to_string(time));
            break;
        }
        position = chunk.GetTimePoint();
        ExpectChunk(true, chunk, time);
        if (position != At(time)) {
            break;
        }
    }
    Expect(!reader.GetNextChunk(chunk, position, {}) || violationCount > 0,
           "a chunk that nobody sent, at " + std::to_string(chunk.GetTimePoint().ToNanoseconds()));
    direct.CloseTrackReader(own.id, 1);
}

}  // namespace Brantel::Tests
