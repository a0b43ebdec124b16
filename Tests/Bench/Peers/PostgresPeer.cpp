// PostgreSQL with libpq: prepared statements with binary values, a row for each value in a table
// for each size, stored out of line and not compressed. "os": fsync off; "interval":
// synchronous_commit off; "always": both on. What is read comes out of its own buffers.

#include "Bench/Peers/Kinds.h"
#include "Bench/Peers/ServerChild.h"

#include <endian.h>
#include <libpq-fe.h>

#include <array>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace Brantel::Bench {
namespace {

// It refuses to run as root: its package's user then runs it.
constexpr const char* user = "postgres";

struct Finish {
    void operator()(PGconn* connection) const { PQfinish(connection); }
};
struct Clear {
    void operator()(PGresult* result) const { PQclear(result); }
};
using Connection = std::unique_ptr<PGconn, Finish>;
using Result = std::unique_ptr<PGresult, Clear>;

std::string ProgramPath(const std::string& name) {
    return FindProgram(name, {"/usr/lib/postgresql/15/bin"});
}

bool IsWalk(const Task& task) {
    return task.work == Work::Next || task.work == Work::Previous;
}

std::string TableOf(const Task& task) {
    return (IsWalk(task) ? "walk" : "last") + std::to_string(task.size);
}

class PostgresCalls : public ICalls {
  public:
    PostgresCalls(Connection made, const Task& task)
        : connection(std::move(made)), task(task), value(task.size, 'x') {
        const std::string table = TableOf(task);
        Prepare("append", "INSERT INTO " + table + " VALUES ($1, $2)");
        Prepare("count", "SELECT count(*) FROM " + table);
        Prepare("read", "SELECT time, value FROM " + table + " WHERE time = $1");
        Prepare("next",
                "SELECT time, value FROM " + table + " WHERE time > $1 ORDER BY time LIMIT 1");
        Prepare("previous",
                "SELECT time, value FROM " + table + " WHERE time < $1 ORDER BY time DESC LIMIT 1");
        Prepare("ask", "SELECT $1::int8");
        if (task.work == Work::Append) {
            Plain("TRUNCATE " + table);
        } else if (task.work == Work::Read || IsWalk(task)) {
            Fill(IsWalk(task) ? walkValues : KeptOf(task.size));
        }
    }

    void Call() override {
        switch (task.work) {
            case Work::Ask: Check(Number(*Execute("ask", 1, false)) == 1); break;
            case Work::Append: Execute("append", ++last, true); break;
            case Work::Read: Take(*Execute("read", 1 + turn++ % KeptOf(task.size), false)); break;
            case Work::Next: Walk("next", 0); break;
            default: Walk("previous", walkValues + 1); break;
        }
    }

  private:
    void Check(bool good) const {
        if (!good) {
            throw std::runtime_error(std::string("postgres: ") + PQerrorMessage(connection.get()));
        }
    }
    void Prepare(const char* name, const std::string& text) {
        const Result result(PQprepare(connection.get(), name, text.c_str(), 0, nullptr));
        Check(PQresultStatus(result.get()) == PGRES_COMMAND_OK);
    }
    void Plain(const std::string& text) {
        const Result result(PQexec(connection.get(), text.c_str()));
        Check(PQresultStatus(result.get()) == PGRES_COMMAND_OK);
    }
    // With a number, and the value.
    Result Execute(const char* name, std::uint64_t number, bool withValue) {
        const std::uint64_t inOrder = htobe64(number);
        const std::array<const char*, 2> values{reinterpret_cast<const char*>(&inOrder),
                                                value.data()};
        const std::array<int, 2> sizes{sizeof(inOrder), static_cast<int>(value.size())};
        const std::array<int, 2> binary{1, 1};
        Result result(PQexecPrepared(connection.get(), name, withValue ? 2 : 1, values.data(),
                                     sizes.data(), binary.data(), 1));
        const ExecStatusType status = PQresultStatus(result.get());
        Check(status == PGRES_TUPLES_OK || status == PGRES_COMMAND_OK);
        return result;
    }
    static std::uint64_t Number(const PGresult& result) {
        std::uint64_t inOrder = 0;
        std::memcpy(&inOrder, PQgetvalue(&result, 0, 0), sizeof(inOrder));
        return be64toh(inOrder);
    }
    void Take(const PGresult& result) {
        Check(PQntuples(&result) == 1);
        got.assign(PQgetvalue(&result, 0, 1), static_cast<std::size_t>(PQgetlength(&result, 0, 1)));
        Check(got.size() == task.size);
        place = Number(result);
    }
    void Walk(const char* name, std::uint64_t start) {
        Result result = Execute(name, place == 0 ? start : place, false);
        if (PQntuples(result.get()) == 0) {
            result = Execute(name, start, false);
        }
        Take(*result);
    }
    void Fill(std::size_t wanted) {
        const Result result(
            PQexecPrepared(connection.get(), "count", 0, nullptr, nullptr, nullptr, 1));
        Check(PQresultStatus(result.get()) == PGRES_TUPLES_OK);
        for (last = Number(*result); last < wanted;) {
            Execute("append", ++last, true);
        }
    }

    const Connection connection;
    const Task task;
    const std::string value;
    std::string got;
    std::uint64_t last = 0;
    std::uint64_t place = 0;
    std::size_t turn = 0;
};

class PostgresPeer : public IPeer {
  public:
    PostgresPeer(const std::string& folder, Keeping keeping)
        : folder(folder),
          port(std::to_string(FreePort())),
          server(Command(folder, port, keeping), folder, SIGQUIT, user) {
        server.Until([this] { return PQstatus(Connect(Transport::Unix).get()) == CONNECTION_OK; });
    }

    std::unique_ptr<ICalls> Open(const Task& task) override {
        Connection connection = Connect(task.transport);
        if (PQstatus(connection.get()) != CONNECTION_OK) {
            throw std::runtime_error(std::string("postgres: ") + PQerrorMessage(connection.get()));
        }
        MakeTable(*connection, task);
        return std::make_unique<PostgresCalls>(std::move(connection), task);
    }
    pid_t Process() const override { return server.Process(); }

  private:
    Connection Connect(Transport transport) const {
        const std::string host = transport == Transport::Unix ? folder : "127.0.0.1";
        const std::string text = "host=" + host + " port=" + port + " dbname=postgres user=" + user;
        return Connection(PQconnectdb(text.c_str()));
    }
    void MakeTable(PGconn& connection, const Task& task) {
        const std::string table = TableOf(task);
        const std::lock_guard lock(mutex);
        if (tables.insert(table).second) {
            const std::string text = "CREATE TABLE " + table +
                                     " (time int8 PRIMARY KEY, value bytea); ALTER TABLE " + table +
                                     " ALTER value SET STORAGE EXTERNAL";
            const Result result(PQexec(&connection, text.c_str()));
            if (PQresultStatus(result.get()) != PGRES_COMMAND_OK) {
                throw std::runtime_error(std::string("postgres: ") + PQerrorMessage(&connection));
            }
        }
    }
    // Makes the cluster, too.
    static std::vector<std::string> Command(const std::string& folder, const std::string& port,
                                            Keeping keeping) {
        ServerChild::Run({ProgramPath("initdb"), "--pgdata", folder + "/data", "--auth", "trust",
                          "--username", user, "--no-sync", "--encoding", "UTF8", "--locale", "C"},
                         folder, user);
        const auto set = [](const std::string& name, bool isOn) {
            return name + (isOn ? "=on" : "=off");
        };
        return {ProgramPath("postgres"),
                "-D",
                folder + "/data",
                "-c",
                "listen_addresses=127.0.0.1",
                "-c",
                "port=" + port,
                "-c",
                "unix_socket_directories=" + folder,
                "-c",
                "max_connections=200",
                "-c",
                "shared_buffers=256MB",
                "-c",
                set("fsync", keeping == Keeping::Interval || keeping == Keeping::Always),
                "-c",
                set("synchronous_commit", keeping == Keeping::Always)};
    }

    const std::string folder;
    const std::string port;
    ServerChild server;
    std::mutex mutex;
    std::set<std::string> tables;
};

}  // namespace

PeerKind PostgresKind() {
    constexpr std::size_t mostConnections = 100;
    return {"postgres",
            "PostgreSQL, libpq: prepared INSERT and SELECT of binary values",
            ProgramPath("postgres").empty() ? "there is no PostgreSQL 15 here" : "",
            [](const Task& task, Keeping keeping) {
                return task.work != Work::Wait &&
                       (keeping != Keeping::Memory || task.work != Work::Append);
            },
            [](const std::string& folder, Keeping keeping) {
                return std::make_unique<PostgresPeer>(folder, keeping);
            },
            nullptr,
            mostConnections};
}

}  // namespace Brantel::Bench
