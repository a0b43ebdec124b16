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
    track = RecordedTrack::Of(movie);
    StorageClientX::TrackParameters wanted;
    wanted.size = track.capacity;
    const StorageClientX::TrackParameters made = client.CreateTrack(wanted);
    Finish(client, made.commandId);
    track.id = made.id;
    if (client.TracksCreated({track.id}) != 0) {
        throw std::runtime_error("Track " + std::to_string(track.id) +
                                 " was created and is not listed");
    }
}

void Recording::Record() {
    CreateTrack();
    client.SetTrackProperties(track.id, track.properties);
    ProtocolX::IStorageWriterX* const writer = client.GetTrackWriter(track.id);
    for (std::size_t frame = 0; frame < movie.FrameCount(); ++frame) {
        const ProtocolX::DataChunk chunk = movie.MakeChunk(frame);
        appending.Start();
        writer->Append(chunk);
        appending.Stop(movie.Image(frame).size() + movie.Thumbnail(frame).size());
    }
}

}  // namespace Brantel::MovieDemo
