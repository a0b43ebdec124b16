#include "Bench/BareExchange.h"

#include "Bench/BareFile.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>

namespace Brantel::Bench {

namespace {

bool SendAll(int fd, const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t sent = ::send(fd, data, size, MSG_NOSIGNAL);
        if (sent < 0) {
            return false;
        }
        data += sent;
        size -= static_cast<std::size_t>(sent);
    }
    return true;
}

ssize_t ReceiveSome(int fd, char* data, std::size_t size, bool polls) {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::microseconds budget{50};
    if (polls) {
        const Clock::time_point start = Clock::now();
        for (int tries = 1;; ++tries) {
            const ssize_t got = ::recv(fd, data, size, MSG_DONTWAIT);
            if (got >= 0 || errno != EAGAIN) {
                return got;
            }
            if (tries % 4 == 0 && Clock::now() - start >= budget) {
                break;
            }
        }
    }
    return ::recv(fd, data, size, 0);
}

bool ReceiveAll(int fd, char* data, std::size_t size, bool polls) {
    while (size > 0) {
        const ssize_t got = ReceiveSome(fd, data, size, polls);
        if (got <= 0) {
            return false;
        }
        data += got;
        size -= static_cast<std::size_t>(got);
    }
    return true;
}

// The file of a serving end: places in turn in one whose blocks are all there.
class FileWork {
  public:
    FileWork(const BareShape& shape, const std::string& path)
        : work(shape.file), step(std::max(shape.requestSize, shape.answerSize)) {
        if (HasFile()) {
            size = std::max<std::uint64_t>(step * leastPlaces, leastSize);
            file = std::make_unique<BareFile>(path, size);
            ::unlink(path.c_str());
        }
    }
    void Do(const std::vector<char>& request, std::vector<char>& answer) {
        if (!HasFile()) {
            return;
        }
        place = place + 2 * step <= size ? place + step : 0;
        if (work == BareShape::reads) {
            file->Read(answer.data(), answer.size(), place);
            return;
        }
        file->Write(request.data(), request.size(), place);
        if (work == BareShape::writesAndFlushes) {
            file->FlushData();
        }
    }

  private:
    bool HasFile() const { return work != BareShape::inMemory && work != BareShape::waits; }

    static constexpr std::uint64_t leastPlaces = 4;
    static constexpr std::uint64_t leastSize = 8U << 20U;

    const std::uint64_t work;
    const std::uint64_t step;
    std::uint64_t size = 0;
    std::uint64_t place = 0;
    std::unique_ptr<BareFile> file;
};

// The memory of a serving end.
class Places {
  public:
    explicit Places(const BareShape& shape)
        : takes(shape.requestSize > shape.answerSize),
          places(shape.places,
                 std::vector<char>(std::max(shape.requestSize, shape.answerSize), 'a')) {}

    void Do(const std::vector<char>& request, std::vector<char>& answer) {
        if (places.empty()) {
            return;
        }
        std::vector<char>& place = places[turn++ % places.size()];
        if (takes) {
            std::copy(request.begin(), request.end(), place.begin());
        } else {
            std::copy(place.begin(), place.end(), answer.begin());
        }
    }

  private:
    const bool takes;
    std::vector<std::vector<char>> places;
    std::uint64_t turn = 0;
};

}  // namespace

BareExchange::BareExchange(int fd, const BareShape& shape)
    : fd(fd), shape(shape), request(shape.requestSize, 'q'), answer(shape.answerSize) {
    if (!SendAll(fd, reinterpret_cast<const char*>(&shape), sizeof(shape))) {
        throw std::runtime_error("The bare exchange could not be started");
    }
}

BareExchange::~BareExchange() {
    ::close(fd);
}

void BareExchange::Call() {
    Ask();
    Hear();
}

void BareExchange::Ask() {
    if (!SendAll(fd, request.data(), request.size())) {
        throw std::runtime_error("The bare exchange was cut off");
    }
}

void BareExchange::Hear() {
    if (!ReceiveAll(fd, answer.data(), answer.size(), shape.polls != 0)) {
        throw std::runtime_error("The bare exchange was cut off");
    }
}

void ServeBareExchange(int fd, const std::string& folder, BareBell& bell) {
    BareShape shape;
    if (ReceiveAll(fd, reinterpret_cast<char*>(&shape), sizeof(shape), false)) {
        std::vector<char> request(shape.requestSize);
        std::vector<char> answer(shape.answerSize, 'a');
        FileWork file(shape, folder + "/file" + std::to_string(fd));
        std::optional<std::uint64_t> heard;
        Places places(shape);
        while (ReceiveAll(fd, request.data(), request.size(), shape.polls != 0)) {
            file.Do(request, answer);
            places.Do(request, answer);
            if (shape.wakes != 0) {
                bell.Ring();
            } else if (shape.file == BareShape::waits) {
                if (heard) {
                    bell.WaitFor(*heard);
                }
                heard = heard ? *heard + 1 : bell.Rings();
            }
            if (!SendAll(fd, answer.data(), answer.size())) {
                break;
            }
        }
    }
    ::close(fd);
}

}  // namespace Brantel::Bench
