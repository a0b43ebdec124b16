#pragma once

#include "Support/ServerProcess.h"
#include "Support/TemporaryFolder.h"
#include "ToolRun.h"

#include <libProtocolX/DataChunk.h>
#include <libProtocolX/IStorageReaderX.h>
#include <libProtocolX/StorageClientX.h>
#include <libTime/TimePoint.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

namespace Brantel::Tests {

// The tool beside a server on files, with a track.
class ToolFixture : public testing::Test {
  protected:
    static constexpr long trackSize = 16L << 20U;

    void SetUp() override {
        Start();
        track = CreateTrack(*client, trackSize);
    }
    void Start() {
        server.emplace(socketPath, ServerProcess::OnFolder(folder.File("store")));
        client = server->ConnectOverUnix();
    }
    void Stop() {
        client.reset();
        ASSERT_EQ(server->Stop(), 0) << server->Process().Errors();
    }

    std::string Number() const { return std::to_string(track); }
    ToolRun::Environment Where() const {
        return {{"BRANTEL_SERVER", "unix:" + socketPath}, {"LC_ALL", "C.UTF-8"}};
    }

    // Runs the tool with these arguments.
    int Tool(const std::vector<std::string>& arguments) {
        const ToolRun run(arguments, Where());
        said = run.Output();
        errors = run.Errors();
        return run.ExitCode();
    }
    // Runs a command of the shell, in which $TOOL is the tool, in the folder of the test.
    int Shell(const std::string& command) {
        ProgramRun run({"/bin/sh", "-c", "cd " + folder.Path() + " && " + command}, ShellWhere());
        const int code = run.Wait();
        said = run.Output();
        errors = run.Errors();
        return code;
    }
    ToolRun::Environment ShellWhere() const {
        ToolRun::Environment environment = Where();
        environment.emplace_back("TOOL", ToolRun::Program());
        environment.emplace_back("TRACK", Number());
        return environment;
    }

    std::string WriteFile(const std::string& name, const std::string& bytes) const {
        std::ofstream(folder.File(name), std::ios::binary) << bytes;
        return folder.File(name);
    }
    static std::string ReadFile(const std::string& path) {
        std::ostringstream text;
        text << std::ifstream(path, std::ios::binary).rdbuf();
        return text.str();
    }

    std::vector<long> Times() const { return TimesOf(*client, track); }
    ProtocolX::DataChunk Chunk(long time) const {
        ProtocolX::DataChunk chunk;
        client->GetTrackReader(track, 1)->GetChunk(chunk, Time::TimePoint::Nanoseconds(time), {});
        return chunk;
    }

    // Pictures as far as a splitter looks at them: markers, a segment, coded data of this size.
    static std::string MakePicture(int number, std::size_t size = 500) {
        std::string data(size, static_cast<char>('a' + number % 26));
        return std::string("\xFF\xD8\xFF\xE0\x00\x04ok\xFF\xDA\x00\x02", 12) +
               std::to_string(number) + data + "\xFF\xD9";
    }
    static std::string MakeMovie(int pictures, std::size_t size = 500) {
        std::string movie;
        for (int number = 0; number < pictures; ++number) {
            movie += MakePicture(number, size);
        }
        return movie;
    }

    TemporaryFolder folder;
    const std::string socketPath = folder.File("storage.sock");
    std::optional<ServerProcess> server;
    std::unique_ptr<ProtocolX::StorageClientX> client;
    long track = 0;
    std::string said;
    std::string errors;
};

}  // namespace Brantel::Tests
