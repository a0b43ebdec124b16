// Redis with hiredis, one context for each connection, binary-safe arguments (redisCommandArgv).
// "redis": SET and GET of a few keys. "redis-stream": XADD to a stream that keeps as many entries,
// XRANGE and XREVRANGE for one entry, XREAD BLOCK to wait.

#include "Bench/Peers/Kinds.h"
#include "Bench/Peers/ServerChild.h"

#include <hiredis/hiredis.h>

#include <cstdint>
#include <initializer_list>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Brantel::Bench {
namespace {

constexpr const char* program = "redis-server";

struct FreeContext {
    void operator()(redisContext* context) const { redisFree(context); }
};
struct FreeReply {
    void operator()(redisReply* reply) const { freeReplyObject(reply); }
};
using Context = std::unique_ptr<redisContext, FreeContext>;
using Reply = std::unique_ptr<redisReply, FreeReply>;

struct Address {
    std::string path;
    int port = 0;
};

Context Connect(const Address& address, Transport transport) {
    Context context(transport == Transport::Unix ? redisConnectUnix(address.path.c_str())
                                                 : redisConnect("127.0.0.1", address.port));
    if (!context || context->err != 0) {
        return nullptr;
    }
    return context;
}

void Check(bool good, const redisReply* reply) {
    if (!good) {
        const bool isText = reply != nullptr && reply->str != nullptr;
        throw std::runtime_error(std::string("redis: a wrong answer ") +
                                 (isText ? reply->str : ""));
    }
}

class RedisCalls : public ICalls {
  public:
    RedisCalls(Context context, const Task& task, bool isStream)
        : context(std::move(context)),
          task(task),
          isStream(isStream),
          value(task.size, 'x'),
          key((IsWalk() ? "walk" : "last") + std::to_string(task.size)) {
        if (task.work == Work::Ask) {
            Command({"SET", "small", "12345678"});
        } else if (IsWalk()) {
            FillForWalk();
        } else if (task.work == Work::Read) {
            for (std::size_t i = 0; i < KeptOf(task.size); ++i) {
                Append();
            }
        } else if (task.work == Work::Wait) {
            const Reply last = Command({"XREVRANGE", key, "+", "-", "COUNT", "1"});
            place = last->elements == 1 ? IdOf(*last->element[0]) : "0-0";
        }
    }

    void Call() override {
        switch (task.work) {
            case Work::Ask: CheckText(*Command({"GET", "small"}), 8); break;
            case Work::Append: Append(); break;
            case Work::Read: Read(); break;
            case Work::Next: Walk("XRANGE", "-", "+"); break;
            case Work::Previous: Walk("XREVRANGE", "+", "-"); break;
            case Work::Wait: Wait(); break;
        }
    }
    void Ask() override {
        int isDone = 0;
        Check(redisAppendCommand(context.get(), "GET small") == REDIS_OK, nullptr);
        while (isDone == 0) {
            Check(redisBufferWrite(context.get(), &isDone) == REDIS_OK, nullptr);
        }
    }
    void Hear() override {
        void* reply = nullptr;
        Check(redisGetReply(context.get(), &reply) == REDIS_OK, nullptr);
        CheckText(*Reply(static_cast<redisReply*>(reply)), 8);
    }
    int Descriptor() const override { return context->fd; }

  private:
    bool IsWalk() const { return task.work == Work::Next || task.work == Work::Previous; }
    static void CheckText(const redisReply& reply, std::size_t size) {
        Check(reply.type == REDIS_REPLY_STRING && reply.len == size, &reply);
    }
    Reply Command(std::initializer_list<std::string_view> words) {
        pointers.clear();
        sizes.clear();
        for (const std::string_view word : words) {
            pointers.push_back(word.data());
            sizes.push_back(word.size());
        }
        Reply reply(static_cast<redisReply*>(redisCommandArgv(
            context.get(), static_cast<int>(words.size()), pointers.data(), sizes.data())));
        Check(reply && reply->type != REDIS_REPLY_ERROR, reply.get());
        return reply;
    }
    void Append() {
        if (isStream) {
            Command({"XADD", key, "MAXLEN", std::to_string(KeptOf(task.size)), "*", "data", value});
        } else {
            Command({"SET", key + "." + std::to_string(turn++ % KeptOf(task.size)), value});
        }
    }
    void Read() {
        if (isStream) {
            // The entries in turn: each is the one behind the one before.
            Walk("XRANGE", "-", "+");
        } else {
            CheckText(*Command({"GET", key + "." + std::to_string(turn++ % KeptOf(task.size))}),
                      task.size);
        }
    }
    // One entry of a stream: {id, {"data", value}}.
    std::string IdOf(const redisReply& entry) const {
        Check(entry.elements == 2 && entry.element[1]->elements == 2, &entry);
        CheckText(*entry.element[1]->element[1], task.size);
        return {entry.element[0]->str, entry.element[0]->len};
    }
    void Walk(std::string_view command, std::string_view start, std::string_view end) {
        Reply reply =
            place.empty() ? nullptr : Command({command, key, "(" + place, end, "COUNT", "1"});
        if (!reply || reply->elements == 0) {
            reply = Command({command, key, start, end, "COUNT", "1"});
        }
        Check(reply->elements == 1, reply.get());
        place = IdOf(*reply->element[0]);
    }
    void Wait() {
        const Reply reply =
            Command({"XREAD", "COUNT", "1", "BLOCK", "60000", "STREAMS", key, place});
        Check(reply->elements == 1, reply.get());
        place = IdOf(*reply->element[0]->element[1]->element[0]);
    }
    void FillForWalk() {
        const Reply length = Command({"XLEN", key});
        for (auto i = static_cast<std::size_t>(length->integer); i < walkValues; ++i) {
            Command({"XADD", key, "*", "data", value});
        }
    }

    Context context;
    const Task task;
    const bool isStream;
    const std::string value;
    const std::string key;
    std::string place;
    std::size_t turn = 0;
    std::vector<const char*> pointers;
    std::vector<std::size_t> sizes;
};

class RedisPeer : public IPeer {
  public:
    RedisPeer(const std::string& folder, Keeping keeping, bool isStream)
        : isStream(isStream),
          address{folder + "/socket", FreePort()},
          server(Command(folder, keeping, address), folder) {
        server.Until([this] { return Connect(address, Transport::Unix) != nullptr; });
    }

    std::unique_ptr<ICalls> Open(const Task& task) override {
        Context context;
        // Over a Unix socket a connection is refused while too many wait to be accepted.
        server.Until([&] {
            context = Connect(address, task.transport);
            return context != nullptr;
        });
        return std::make_unique<RedisCalls>(std::move(context), task, isStream);
    }
    pid_t Process() const override { return server.Process(); }

  private:
    static std::vector<std::string> Command(const std::string& folder, Keeping keeping,
                                            const Address& address) {
        std::vector<std::string> command{
            FindProgram(program), "--save", "", "--dir", folder, "--bind", "127.0.0.1", "--port",
            std::to_string(address.port), "--unixsocket", address.path, "--maxclients", "10000",
            "--appendonly", keeping == Keeping::Memory ? "no" : "yes",
            // Its log is not made anew while it is measured.
            "--auto-aof-rewrite-percentage", "0"};
        const std::map<Keeping, std::string> flushes{
            {Keeping::System, "no"}, {Keeping::Interval, "everysec"}, {Keeping::Always, "always"}};
        if (keeping != Keeping::Memory) {
            command.insert(command.end(), {"--appendfsync", flushes.at(keeping)});
        }
        return command;
    }

    const bool isStream;
    const Address address;
    ServerChild server;
};

PeerKind Kind(bool isStream) {
    return {isStream ? "redis-stream" : "redis",
            isStream ? "Redis, hiredis: XADD, XRANGE, XREAD BLOCK"
                     : "Redis, hiredis: SET, GET; an append-only file where values are kept",
            FindProgram(program).empty() ? "there is no redis-server here" : "",
            [isStream](const Task& task, Keeping) {
                return isStream ? task.work != Work::Ask
                                : task.work == Work::Ask || task.work == Work::Append ||
                                      task.work == Work::Read;
            },
            [isStream](const std::string& folder, Keeping keeping) {
                return std::make_unique<RedisPeer>(folder, keeping, isStream);
            },
            nullptr,
            std::numeric_limits<std::size_t>::max(),
            !isStream};
}

}  // namespace

PeerKind RedisKind() {
    return Kind(false);
}

PeerKind RedisStreamKind() {
    return Kind(true);
}

}  // namespace Brantel::Bench
