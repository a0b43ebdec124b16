#include "Movie.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace Brantel::MovieDemo {

namespace {

std::string PathOf(const std::string& folder, const char* kind, std::size_t frame) {
    constexpr std::size_t digits = 6;
    std::string number = std::to_string(frame);
    if (number.size() < digits) {
        number.insert(0, digits - number.size(), '0');
    }
    return folder + "/" + kind + "-" + number + ".jpg";
}

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        throw std::runtime_error(path + ": " + std::generic_category().message(errno));
    }
    return {std::istreambuf_iterator<char>(file), {}};
}

void WriteFile(const std::string& path, const std::string& bytes) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (!file) {
        throw std::runtime_error(path + ": " + std::generic_category().message(errno));
    }
}

JpegSize SizeOf(const std::string& path, const std::string& picture) {
    try {
        return JpegSize::Of(picture);
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(path + ": " + error.what());
    }
}

}  // namespace

Movie Movie::Load(const std::string& folder, Time::TimePoint start) {
    Movie movie;
    movie.start = start;
    for (std::size_t frame = 0;; ++frame) {
        const std::string path = PathOf(folder, imageKey, frame);
        if (frame > 0 && !std::filesystem::exists(path)) {
            return movie;
        }
        movie.frames.push_back({ReadFile(path), ReadFile(PathOf(folder, thumbnailKey, frame))});
        const Frame& pictures = movie.frames.back();
        movie.bytes += pictures.image.size() + pictures.thumbnail.size();
        const JpegSize size = SizeOf(path, pictures.image);
        if (frame == 0) {
            movie.size = size;
        } else if (size != movie.size) {
            throw std::runtime_error(path + ": " + std::to_string(size.width) + "x" +
                                     std::to_string(size.height) +
                                     " is not the size of the first picture");
        }
    }
}

void Movie::Save(const std::string& folder, std::size_t frame, const std::string& image,
                 const std::string& thumbnail) {
    WriteFile(PathOf(folder, imageKey, frame), image);
    WriteFile(PathOf(folder, thumbnailKey, frame), thumbnail);
}

Time::TimePoint Movie::FrameDuration() {
    constexpr long nanoseconds = 40'000'000;
    return Time::TimePoint::Nanoseconds(nanoseconds);
}

Time::TimePoint Movie::TimeOf(std::size_t frame) const {
    return start +
           Time::TimePoint::Nanoseconds(static_cast<long>(frame) * FrameDuration().ToNanoseconds());
}

ProtocolX::DataChunk Movie::MakeChunk(std::size_t frame) const {
    ProtocolX::DataChunk chunk;
    chunk.SetTimePoint(TimeOf(frame));
    chunk.SetDuration(FrameDuration());
    chunk.SetProperty("width", std::to_string(size.width));
    chunk.SetProperty("height", std::to_string(size.height));
    chunk.SetProperty("codec", "mjpeg");
    chunk.SetData(imageKey, Image(frame));
    chunk.SetData(thumbnailKey, Thumbnail(frame));
    return chunk;
}

}  // namespace Brantel::MovieDemo
