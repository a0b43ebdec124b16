#pragma once

#include <libEngine/Local/FileCalls.h>

#include <sys/stat.h>

namespace Brantel::Engine {

// The system's calls, of which some flushes do nothing though they say that they did.
class UnflushedFileCalls : public FileCalls {
  public:
    enum class Omitted { Files, Folders };
    explicit UnflushedFileCalls(Omitted omitted) : omitted(omitted) {}

    int FlushData(int file) override { return Omits(file) ? 0 : FileCalls::FlushData(file); }
    int Flush(int file) override { return Omits(file) ? 0 : FileCalls::Flush(file); }

  private:
    bool Omits(int file) {
        struct stat status {};
        const bool isFolder = FileCalls::GetStatus(file, &status) == 0 && S_ISDIR(status.st_mode);
        return isFolder == (omitted == Omitted::Folders);
    }

    const Omitted omitted;
};

}  // namespace Brantel::Engine
