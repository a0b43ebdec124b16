#pragma once

#include "Bench/Peers/Peer.h"

#include <vector>

namespace Brantel::Bench {

// Each in a source of its own.
PeerKind OwnKind();
enum class Bareness { Polling, Blocking, Keeping };
PeerKind BareKind(Bareness bareness);
PeerKind GrpcKind();
PeerKind RedisKind();
PeerKind RedisStreamKind();
PeerKind ThriftKind();
PeerKind ZeroMqKind();
PeerKind NatsKind();
PeerKind PostgresKind();

// Ours first, then the bare exchanges, then the peers; what was not built is there too and says
// why.
std::vector<PeerKind> AllKinds();

}  // namespace Brantel::Bench
