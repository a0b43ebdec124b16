#include "Bench/Peers/Kinds.h"

namespace Brantel::Bench {

namespace {

[[maybe_unused]] PeerKind NotBuilt(const std::string& name, const std::string& package) {
    PeerKind kind;
    kind.name = name;
    kind.missing = "not built: " + package + " was not there when the build was configured";
    return kind;
}

}  // namespace

std::vector<PeerKind> AllKinds() {
    std::vector<PeerKind> kinds{OwnKind(), BareKind(Bareness::Polling),
                                BareKind(Bareness::Blocking), BareKind(Bareness::Keeping)};
#ifdef BRANTEL_PEER_GRPC
    kinds.push_back(GrpcKind());
#else
    kinds.push_back(NotBuilt("grpc", "libgrpc++-dev or protobuf-compiler-grpc"));
#endif
#ifdef BRANTEL_PEER_REDIS
    kinds.push_back(RedisKind());
    kinds.push_back(RedisStreamKind());
#else
    kinds.push_back(NotBuilt("redis", "libhiredis-dev"));
    kinds.push_back(NotBuilt("redis-stream", "libhiredis-dev"));
#endif
#ifdef BRANTEL_PEER_THRIFT
    kinds.push_back(ThriftKind());
#else
    kinds.push_back(NotBuilt("thrift", "libthrift-dev, thrift-compiler or libboost-dev"));
#endif
#ifdef BRANTEL_PEER_ZEROMQ
    kinds.push_back(ZeroMqKind());
#else
    kinds.push_back(NotBuilt("zeromq", "libzmq3-dev"));
#endif
#ifdef BRANTEL_PEER_NATS
    kinds.push_back(NatsKind());
#else
    kinds.push_back(NotBuilt("nats", "libnats-dev"));
#endif
#ifdef BRANTEL_PEER_POSTGRES
    kinds.push_back(PostgresKind());
#else
    kinds.push_back(NotBuilt("postgres", "libpq-dev"));
#endif
    return kinds;
}

}  // namespace Brantel::Bench
