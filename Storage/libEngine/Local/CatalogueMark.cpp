#include "Local/CatalogueMark.h"

#include "Local/File.h"
#include "Local/SegmentFormat.h"

#include <fcntl.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <string_view>

namespace Brantel::Engine {

namespace {

constexpr std::string_view magic = "BRCATMRK";
constexpr std::size_t pageSize = SegmentFormat::pageSize;

struct Mark {
    std::uint64_t checksum = 0;
    char magic[8] = {};  // NOLINT(*-avoid-c-arrays): as it lies in the file
    std::uint64_t version = 0;
};
static_assert(sizeof(Mark) == 24);

std::uint64_t ChecksumOf(const Mark& mark) {
    return SegmentFormat::Checksum(mark.magic, sizeof mark - sizeof mark.checksum);
}

std::size_t PlaceOf(std::uint64_t version) {
    return version % 2 == 1 ? 0 : pageSize / 2;
}

std::optional<std::uint64_t> VersionAt(const std::string& page, std::size_t place) {
    Mark mark;
    std::memcpy(&mark, page.data() + place, sizeof mark);
    const bool whole = mark.checksum == ChecksumOf(mark) &&
                       std::string_view(mark.magic, sizeof mark.magic) == magic;
    return whole ? std::optional(mark.version) : std::nullopt;
}

}  // namespace

CatalogueMark::CatalogueMark(const FolderCalls& folders, const std::string& path)
    : file(std::make_unique<File>(folders.GetCalls(), path, O_RDWR | O_CREAT)),
      page(pageSize, '\0') {
    const bool isNew = file->ReadSome(page.data(), pageSize, 0) == 0;
    const std::optional<std::uint64_t> odd = VersionAt(page, PlaceOf(1));
    const std::optional<std::uint64_t> even = VersionAt(page, PlaceOf(2));
    version = std::max(odd.value_or(0), even.value_or(0));
    damaged = !isNew && !odd && !even;
    if (isNew) {
        Write(0);
        folders.FlushFolder(FolderCalls::ParentOf(path));
    }
}

CatalogueMark::~CatalogueMark() = default;

void CatalogueMark::Write(std::uint64_t newVersion) {
    Mark mark;
    std::memcpy(mark.magic, magic.data(), magic.size());
    mark.version = newVersion;
    mark.checksum = ChecksumOf(mark);
    std::memcpy(page.data() + PlaceOf(newVersion), &mark, sizeof mark);
    file->Write(page.data(), page.size(), 0);
    file->FlushData();
    version = newVersion;
}

}  // namespace Brantel::Engine
