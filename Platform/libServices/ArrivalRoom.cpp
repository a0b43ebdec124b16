#include "ArrivalRoom.h"

#include <algorithm>
#include <chrono>

namespace Brantel::Services {

void ArrivalRoom::Enter(ArrivingMessage& message, std::uint64_t bytes) {
    const std::lock_guard guard(mutex);
    message.place = messages.insert(messages.end(), &message);
    message.size = bytes;
    message.taken = 0;
}

bool ArrivalRoom::Take(ArrivingMessage& message, std::uint64_t bytes,
                       const std::function<bool()>& isOver, bool& waited) {
    // How soon a connection that waits here notices its end.
    constexpr std::chrono::milliseconds pause{100};
    std::unique_lock guard(mutex);
    message.wanted = bytes;
    ++waiting;
    ServeLocked();
    while (message.wanted > 0) {
        waited = true;
        message.served.wait_for(guard, pause);
        if (message.wanted > 0 && isOver()) {
            message.wanted = 0;
            --waiting;
            // It may have been the one that the others could not pass.
            ServeLocked();
            return false;
        }
    }
    return true;
}

void ArrivalRoom::Complete(ArrivingMessage& message) noexcept {
    const std::lock_guard guard(mutex);
    message.size = std::max<std::uint64_t>(message.taken, 1);
    ServeLocked();
}

void ArrivalRoom::Leave(ArrivingMessage& message) noexcept {
    const std::lock_guard guard(mutex);
    messages.erase(message.place);
    taken -= message.taken;
    message.size = message.taken = 0;
    ServeLocked();
}

// A message that has begun may pass those that have not: it gives its room back the sooner.
void ArrivalRoom::ServeLocked() noexcept {
    if (waiting == 0) {
        return;
    }
    std::uint64_t younger = taken;
    // What all messages so far, each with those that are younger, leave free.
    std::uint64_t free = size;
    bool newOnesWait = false;
    for (ArrivingMessage* const message : messages) {
        younger -= message->taken;
        if (message->wanted > 0) {
            const bool isNew = message->taken == 0;
            if (message->wanted <= free && !(isNew && newOnesWait)) {
                taken += message->wanted;
                message->taken += message->wanted;
                free -= message->wanted;
                message->wanted = 0;
                --waiting;
                message->served.notify_one();
            } else {
                newOnesWait = newOnesWait || isNew;
            }
        }
        const std::uint64_t claimed = message->size + younger;
        free = std::min(free, size - std::min(size, claimed));
    }
}

std::uint64_t ArrivalRoom::Taken() const {
    const std::lock_guard guard(mutex);
    return taken;
}

}  // namespace Brantel::Services
