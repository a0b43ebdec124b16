#include "Bench/StoreWorkload.h"

#include <array>

namespace Brantel::Bench {

namespace {

constexpr std::size_t kibi = 1024;
constexpr std::size_t mebi = kibi * kibi;

struct Size {
    std::size_t bytes;
    const char* name;
};

constexpr std::array<Size, 5> sizes{{{100, "100B"},
                                     {4 * kibi, "4KiB"},
                                     {256 * kibi, "256KiB"},
                                     {mebi, "1MiB"},
                                     {8 * mebi, "8MiB"}}};

struct Over {
    Transport transport;
    const char* name;
    const char* about;
};

constexpr std::array<Over, 2> transports{
    {{Transport::Unix, "unix", "a Unix socket"}, {Transport::Tcp, "tcp", "TCP"}}};

void AddAsks(std::vector<Workload>& all) {
    for (const Over& over : transports) {
        Workload ask;
        ask.name = std::string("ask/") + over.name;
        ask.about = std::string("a small call over ") + over.about + ", each end on a processor";
        ask.task = {Work::Ask, over.transport, 0};
        ask.goals = {{"bare", over.transport == Transport::Unix ? 1.3 : 1.15},
                     {"grpc", 0.15},
                     {"redis", 0.2}};
        all.push_back(ask);
        ask.name += "/one";
        ask.about = std::string("a small call over ") + over.about + ", both ends on one processor";
        ask.oneProcessor = true;
        ask.goals = {{"bare", 1.2}, {"grpc", 0.45}, {"redis", 0.95}, {"best", 0.95}};
        all.push_back(ask);
    }
}

std::vector<Goal> MemoryGoals(Work work, std::size_t size) {
    const bool isAppend = work == Work::Append;
    if (size < 4 * kibi) {
        return {};
    }
    if (size == 4 * kibi) {
        return {{"bare", 1.5}, {"grpc", 0.2}, {"redis", 0.25}, {"best", 0.3}};
    }
    const double bare = size == 256 * kibi ? 1.4 : size == mebi ? 1.5 : 2.0;
    return {{"bare", bare},
            {"grpc", isAppend ? 0.25 : 0.4},
            {"redis", isAppend ? 0.25 : 0.6},
            {"best", isAppend ? 0.75 : 0.7}};
}

void AddMemory(std::vector<Workload>& all) {
    for (const Work work : {Work::Append, Work::Read}) {
        for (const Size& size : sizes) {
            for (const Over& over : transports) {
                const std::string name = work == Work::Append ? "append" : "read";
                Workload one;
                one.name = "memory/" + name + "/" + size.name + "/" + over.name;
                one.about = name + " " + size.name + " over " + over.about + ", kept in memory";
                one.task = {work, over.transport, size.bytes};
                one.goals = MemoryGoals(work, size.bytes);
                all.push_back(one);
            }
        }
    }
}

void AddWalks(std::vector<Workload>& all) {
    for (const Over& over : transports) {
        for (const Work work : {Work::Next, Work::Previous}) {
            const std::string name = work == Work::Next ? "next" : "previous";
            Workload walk;
            walk.name = "walk/" + name + "/" + over.name;
            walk.about = "the " + name + " of 1,000 values of 4 KiB, over " + over.about +
                         ", kept in memory";
            walk.task = {work, over.transport, 4 * kibi};
            all.push_back(walk);
        }
    }
}

void AddMany(std::vector<Workload>& all) {
    constexpr std::size_t most = 1000;
    constexpr std::size_t few = 10;
    for (const Over& over : transports) {
        for (const std::size_t count : {few, std::size_t{100}, most}) {
            Workload crowd;
            crowd.kind = Workload::Kind::ManyConnections;
            crowd.name = "crowd/" + std::to_string(count) + "/" + over.name;
            crowd.about = "small calls of " + std::to_string(count) +
                          " connections at once, one thread for all of them, over " + over.about;
            crowd.task = {Work::Ask, over.transport, 0, false, true};
            crowd.connections = count;
            crowd.oneThread = true;
            if (count == most) {
                crowd.besideConnections = few;
                crowd.goals = {{"brantel/10", 0.7}, {"redis", 0.8}};
            }
            all.push_back(crowd);
        }
        for (const std::size_t count : {std::size_t{1}, few, std::size_t{100}, most}) {
            Workload many;
            many.kind = Workload::Kind::ManyConnections;
            many.name = "many/" + std::to_string(count) + "/" + over.name;
            many.about = "small calls of " + std::to_string(count) +
                         " connections at once, a thread each, over " + over.about;
            many.task = {Work::Ask, over.transport, 0};
            many.connections = count;
            if (count == most) {
                many.besideConnections = few;
                many.goals = {{"brantel/10", 0.7}, {"grpc", 3}, {"redis", 0.8}};
            }
            all.push_back(many);
        }
    }
}

void AddWakes(std::vector<Workload>& all, Keeping keeping, const std::string& name) {
    constexpr double longest = 200;
    for (const Over& over : transports) {
        Workload wake;
        wake.kind = Workload::Kind::Wake;
        wake.name = "wake/" + name + "/" + over.name;
        wake.about = "from an append of 4 KiB until another connection's wait ends, over " +
                     std::string(over.about) + ", " + name + ", processors free to choose";
        wake.task = {Work::Append, over.transport, 4 * kibi, true};
        wake.keeping = keeping;
        wake.goals = {{"redis", 1}};
        if (keeping != Keeping::Always) {
            wake.goals.insert(wake.goals.begin(), {"time", longest});
        }
        all.push_back(wake);
    }
}

void AddLocal(std::vector<Workload>& all, Keeping keeping, const std::string& name) {
    for (const Work work : {Work::Append, Work::Read}) {
        for (const Size& size : sizes) {
            for (const Over& over : transports) {
                // What is read does not depend on the durability: once, with the system's.
                const bool isUsualSize = size.bytes == 4 * kibi || size.bytes == 256 * kibi;
                if ((work == Work::Read && keeping != Keeping::System) ||
                    (over.transport == Transport::Tcp && !isUsualSize)) {
                    continue;
                }
                const std::string workName = work == Work::Append ? "append" : "read";
                Workload local;
                local.name = name + "/" + workName + "/" + size.name + "/" + over.name;
                local.about = workName + " " + size.name + " over " + over.about +
                              ", kept in files, durability " + name;
                local.task = {work, over.transport, size.bytes};
                local.keeping = keeping;
                if (keeping == Keeping::Always && isUsualSize) {
                    local.goals = {{"bare", 1.3}, {"redis", 0.85}};
                }
                all.push_back(local);
            }
        }
    }
}

}  // namespace

std::vector<Workload> AllWorkloads() {
    std::vector<Workload> all;
    AddAsks(all);
    AddMemory(all);
    AddWalks(all);
    AddMany(all);
    AddWakes(all, Keeping::Memory, "memory");
    AddLocal(all, Keeping::System, "os");
    AddWakes(all, Keeping::System, "os");
    AddLocal(all, Keeping::Interval, "interval");
    AddLocal(all, Keeping::Always, "always");
    AddWakes(all, Keeping::Always, "always");
    return all;
}

}  // namespace Brantel::Bench
