#include "Verbs/WorkerVerb.h"

#include "Context.h"
#include "ExitCodes.h"
#include "SizeText.h"
#include "Table.h"
#include "VerbList.h"
#include "WorkerList.h"

#include <CLI/CLI.hpp>

#include <vector>

namespace Brantel::Tool {

using ProtocolX::StorageClientX;
using Worker = WorkerList::Worker;

namespace {

void PrintJson(Context& context, const Worker& worker) {
    JsonObject object;
    object.Add("worker", worker.workerId)
        .Add("type", std::string_view(WorkerList::TypeOf(worker)))
        .Add("track", worker.trackId)
        .Add("connection", worker.connectionId)
        .Add("bytesPerSecond", worker.throughput)
        .Add("client", std::string_view(worker.clientIpV4Address));
    context.Out().Line(object.Print());
}

int List(Context& context) {
    const std::vector<Worker> workers =
        context.Ask([](StorageClientX& client) { return WorkerList::Read(client); });
    using Align = Table::Align;
    Table table({{"worker", Align::Right},
                 {"type"},
                 {"track", Align::Right},
                 {"connection", Align::Right},
                 {"throughput", Align::Right},
                 {"client"}});
    for (const Worker& worker : workers) {
        if (context.Style().json) {
            PrintJson(context, worker);
        } else {
            table.AddRow({std::to_string(worker.workerId), WorkerList::TypeOf(worker),
                          std::to_string(worker.trackId), std::to_string(worker.connectionId),
                          SizeText::PrintRate(static_cast<double>(worker.throughput)),
                          worker.clientIpV4Address.empty() ? "-" : worker.clientIpV4Address});
        }
    }
    if (workers.empty()) {
        context.Note("Nobody reads or writes");
    } else if (!context.Style().json) {
        context.Out().Write(table.Print(context.Style().colorsOutput));
    }
    return ExitCodes::done;
}

}  // namespace

void DeclareWorker(VerbList& verbs) {
    CLI::App& family = verbs.AddFamily("worker", "Shows who reads and writes");
    CLI::App& verb =
        verbs.Add(family, "ls", "Lists the open readers and writers of all clients", &List);
    VerbList::AddExample(verb, "brantel worker ls", "who is at work");
}

}  // namespace Brantel::Tool
