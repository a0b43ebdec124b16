#pragma once

#include "Conformance/FaultMatrix.h"

#include <span>

namespace BrantelStorageApi {

// What a server meets: a client, over a real socket, that sends or does something wrong, or objects
// that fail; always beside a client in good order, which must not notice.
std::span<const Fault> ServerFaults();

}  // namespace BrantelStorageApi
