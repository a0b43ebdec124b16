#include "Recording.h"

#include <libProtocolX/IStorageWriterX.h>

#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>

namespace Brantel::MovieDemo {

using ProtocolX::StorageClientX;

namespace {

// Follows a command to its end. Throws std::runtime_error when it ends in another way than
// finished.
void Finish(StorageClientX& client, long commandId) {
    constexpr std::chrono::milliseconds pause{1};
    for (;;) {
        const StorageClientX::CommandInfo command = client.GetCommandInfo(commandId);
        if (command.type == StorageClientX::FINISHED) {
            return;
        }
        if (command.type != StorageClientX::QUEUED && command.type != StorageClientX::ONGOING) {
            throw std::runtime_error("Command " + std::to_string(commandId) +
                                     " was not carried out: its state is " +
                                     std::to_string(command.type));
        }
        std::this_thread::sleep_for(pause);
    }
}

}  // namespace

void Recording::CreateTrack() {
    // Room for the pictures and, generously, for what is stored around each.
    constexpr std::size_t aroundFrame = 4096;
    constexpr std::size_t least = std::size_t{16} << 20U;
    StorageClientX::TrackParameters wanted;
    wanted.size = static_cast<long>(2 * movie.Bytes() + movie.FrameCount() * aroundFrame + least);
    track = client.CreateTrack(wanted);
    Finish(client, track.commandId);
    if (client.TracksCreated({track.id}) != 0) {
        throw std::runtime_error("Track " + std::to_string(track.id) +
                                 " was created and is not listed");
    }
}

void Recording::Record() {
    CreateTrack();
    properties = {{"title", "Moving picture"}, {"frames", std::to_string(movie.FrameCount())}};
    client.SetTrackProperties(track.id, properties);
    ProtocolX::IStorageWriterX* const writer = client.GetTrackWriter(track.id);
    for (std::size_t frame = 0; frame < movie.FrameCount(); ++frame) {
        const ProtocolX::DataChunk chunk = movie.MakeChunk(frame);
        appending.Start();
        writer->Append(chunk);
        appending.Stop(movie.Image(frame).size() + movie.Thumbnail(frame).size());
    }
}

}  // namespace Brantel::MovieDemo
