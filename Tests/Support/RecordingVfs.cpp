#include "Support/RecordingVfs.h"

#include "Support/WrappedVfs.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

namespace Brantel::Engine {

using Kind = FileOperation::Kind;

namespace {

class RecordedFile : public WrappedFile {
  public:
    // `file`: its number in the recording. `folderToFlush`: flushed by the first flush, as the
    // system's file layer does for a journal.
    RecordedFile(sqlite3_file& system, FileRecording& recording, std::uint64_t file,
                 std::optional<std::string> folderToFlush)
        : WrappedFile(system),
          recording(recording),
          file(file),
          folderToFlush(std::move(folderToFlush)) {}

    int Write(const void* bytes, int size, sqlite3_int64 offset) override {
        const std::size_t index = recording.Begin(
            {.kind = Kind::Write,
             .file = file,
             .offset = static_cast<std::uint64_t>(offset),
             .bytes = {static_cast<const char*>(bytes), static_cast<std::size_t>(size)}});
        const int result = WrappedFile::Write(bytes, size, offset);
        recording.End(index, result == SQLITE_OK);
        return result;
    }

    int Truncate(sqlite3_int64 size) override {
        return RecordSize([&] { return WrappedFile::Truncate(size); });
    }

    int Sync(int) override {
        recording.End(recording.Begin({.kind = Kind::FlushFile, .file = file}), true);
        if (const std::optional<std::string> folder = std::exchange(folderToFlush, std::nullopt)) {
            recording.End(recording.Begin({.kind = Kind::FlushFolder, .path = *folder}), true);
        }
        return SQLITE_OK;
    }

    int Control(int operation, void* argument) override {
        return RecordSize([&] { return WrappedFile::Control(operation, argument); });
    }

  private:
    sqlite3_int64 SizeNow() {
        sqlite3_int64 size = 0;
        return GetSize(&size) == SQLITE_OK ? size : 0;
    }

    // Carries out a call that may change the size, in whatever way the system rounds it.
    template <typename Call>
    int RecordSize(const Call& call) {
        const sqlite3_int64 before = SizeNow();
        const std::size_t index = recording.Begin({.kind = Kind::Resize, .file = file});
        const int result = call();
        const sqlite3_int64 after = SizeNow();
        recording.EndResize(index, static_cast<std::uint64_t>(after), after != before);
        return result;
    }

    FileRecording& recording;
    const std::uint64_t file;
    std::optional<std::string> folderToFlush;
};

}  // namespace

struct RecordingVfs::Registration : WrappedVfs {
    FileRecording& recording;

    explicit Registration(FileRecording& recording)
        : WrappedVfs("recording"), recording(recording) {}

    int Open(const char* path, int flags, int* outFlags, sqlite3_file& file,
             std::unique_ptr<WrappedFile>& wrapped) override {
        if (path == nullptr) {
            // For SQLite's own use, gone when it is closed.
            wrapped = std::make_unique<WrappedFile>(file);
            return System().xOpen(&System(), path, &file, flags, outFlags);
        }
        const std::string below = recording.Below(path).value();
        constexpr int journals =
            SQLITE_OPEN_MAIN_JOURNAL | SQLITE_OPEN_SUPER_JOURNAL | SQLITE_OPEN_WAL;
        const bool mayCreate = (flags & SQLITE_OPEN_CREATE) != 0;
        std::optional<std::string> folderToFlush;
        if (mayCreate && (flags & journals) != 0) {
            folderToFlush = FileOperation::FolderOf(below);
        }
        std::uint64_t number = 0;
        std::optional<std::size_t> created;
        if (const std::optional<std::uint64_t> known = recording.FindFile(path)) {
            number = *known;
        } else if (mayCreate) {
            number = recording.NewFile();
            created = recording.Begin({.kind = Kind::Create, .file = number, .path = below});
        }
        wrapped = std::make_unique<RecordedFile>(file, recording, number, std::move(folderToFlush));
        const int result = System().xOpen(&System(), path, &file, flags, outFlags);
        if (created) {
            recording.End(*created, result == SQLITE_OK);
        }
        return result;
    }

    // The system flushes no folder: that is recorded only.
    int Delete(const char* path, int flushFolder) override {
        const std::string below = recording.Below(path).value();
        const std::size_t index = recording.Begin({.kind = Kind::Remove, .path = below});
        const int result = WrappedVfs::Delete(path, 0);
        recording.End(index, result == SQLITE_OK);
        if (result == SQLITE_OK && flushFolder != 0) {
            recording.End(recording.Begin(
                              {.kind = Kind::FlushFolder, .path = FileOperation::FolderOf(below)}),
                          true);
        }
        return result;
    }
};

RecordingVfs::RecordingVfs(FileRecording& recording)
    : registration(std::make_unique<Registration>(recording)) {}

RecordingVfs::~RecordingVfs() = default;

const std::string& RecordingVfs::GetName() const {
    return registration->GetName();
}

}  // namespace Brantel::Engine
