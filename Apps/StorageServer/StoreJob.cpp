#include "StoreJob.h"

#include <libTracks/StoreCheck.h>
#include <libTracks/StoreRecovery.h>

#include <cstdio>
#include <filesystem>
#include <stdexcept>

namespace Brantel::Server {

namespace {

int ExitCode(std::uint64_t findings) {
    return findings == 0 ? StoreJob::whole : StoreJob::damaged;
}

std::string Verdict(std::uint64_t findings) {
    return findings == 0 ? "all is whole" : std::to_string(findings) + " findings";
}

}  // namespace

void StoreJob::CheckTarget() const {
    namespace fs = std::filesystem;
    const fs::path path(target);
    if (fs::exists(fs::symlink_status(path)) && !fs::is_directory(fs::symlink_status(path))) {
        throw std::runtime_error(target + ": is not a folder");
    }
    if (fs::exists(path) && !fs::is_empty(path)) {
        throw std::runtime_error(target + ": is not empty");
    }
    const fs::path within =
        fs::weakly_canonical(path).lexically_relative(fs::weakly_canonical(folder));
    if (!within.empty() && *within.begin() != "..") {
        throw std::runtime_error(target + ": lies within the store " + folder);
    }
}

int StoreJob::Check(Engine::IEngine& source, Tracks::StoreFindings& findings) const {
    const Tracks::StoreCheck::Sums sums = Tracks::StoreCheck(source, findings).Run();
    std::printf("%s: %llu tracks, %llu segments, %llu chunks: %s\n", folder.c_str(),
                static_cast<unsigned long long>(sums.tracks),
                static_cast<unsigned long long>(sums.segments),
                static_cast<unsigned long long>(sums.chunks), Verdict(findings.GetCount()).c_str());
    return ExitCode(findings.GetCount());
}

int StoreJob::Recover(Engine::IEngine& source, Engine::IEngine& newStore,
                      Tracks::StoreFindings& findings) const {
    const Tracks::StoreRecovery::Sums sums =
        Tracks::StoreRecovery(source, newStore, findings).Run();
    std::printf("%s: %llu chunks of %llu tracks, %llu bytes, copied to %s; %llu left out: %s\n",
                folder.c_str(), static_cast<unsigned long long>(sums.chunks),
                static_cast<unsigned long long>(sums.tracks),
                static_cast<unsigned long long>(sums.bytes), target.c_str(),
                static_cast<unsigned long long>(sums.damaged),
                Verdict(findings.GetCount()).c_str());
    return ExitCode(findings.GetCount());
}

}  // namespace Brantel::Server
