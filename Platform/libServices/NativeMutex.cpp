#include "NativeMutex.h"

#include <stdexcept>

namespace Brantel::Services {

NativeMutex::NativeMutex() : mutex() {
    if (pthread_mutex_init(&mutex, nullptr) != 0) {
        throw std::runtime_error("Could not init mutex");
    }
}

NativeMutex::~NativeMutex() {
    pthread_mutex_destroy(&mutex);
}

void NativeMutex::Enter() {
    if (pthread_mutex_lock(&mutex) != 0) {
        throw std::runtime_error("Could not lock mutex");
    }
}

void NativeMutex::Leave() {
    if (pthread_mutex_unlock(&mutex) != 0) {
        throw std::runtime_error("Could not unlock mutex");
    }
}

}  // namespace Brantel::Services
