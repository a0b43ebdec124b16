#pragma once

#include "Conformance/FaultMatrix.h"

#include <span>

namespace BrantelStorageApi {

// What a client meets: a stub's call, over a real socket, against a server that does something
// wrong, or in a system that has nothing left to give.
std::span<const Fault> ClientFaults();

}  // namespace BrantelStorageApi
