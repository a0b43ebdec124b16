#include "rpc/RequestInHand.h"

namespace BrantelStorageApi {

namespace {

thread_local Request* current = nullptr;

}  // namespace

RequestInHand::RequestInHand(Request& request) noexcept : before(current) {
    current = &request;
}

RequestInHand::~RequestInHand() {
    current = before;
}

Request* RequestInHand::Find(const Request& request) noexcept {
    return current == &request ? current : nullptr;
}

}  // namespace BrantelStorageApi
