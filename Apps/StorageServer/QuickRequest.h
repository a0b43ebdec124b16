#pragma once

#include <cstddef>

namespace Brantel::Server {

// Whether the bytes are those of a request that is answered at once from memory, briefly, and never
// waits for the medium, another client or a chunk: the size and the ends of a track, a command's
// state, the track of a reader or writer. The operation comes first in it, as every client writes
// it; other requests, also invalid ones, are not quick. Any thread.
bool IsQuickRequest(const unsigned char* request, std::size_t size);

}  // namespace Brantel::Server
