#pragma once

#include <BrantelStorageApiMessages.pb.h>

namespace BrantelStorageApi {

// A request that a service has received itself and drops when it is served: what it carries may be
// taken out of it instead of copied. Known to the thread that serves it alone, for as long as this
// object lives; a request that comes from elsewhere is its caller's, and stays as it is.
class RequestInHand {
  public:
    // `request` is borrowed.
    explicit RequestInHand(Request& request) noexcept;
    ~RequestInHand();
    RequestInHand(const RequestInHand&) = delete;
    RequestInHand& operator=(const RequestInHand&) = delete;

    // The same request, to be taken apart; null when it is not the one in hand.
    static Request* Find(const Request& request) noexcept;

  private:
    Request* const before;
};

}  // namespace BrantelStorageApi
