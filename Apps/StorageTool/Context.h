#pragma once

#include "Interrupts.h"
#include "JsonObject.h"
#include "Output.h"
#include "OutputStyle.h"
#include "ServerAddress.h"

#include <libProtocolX/StorageClientX.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace Brantel::Tool {

// What a verb works with: the server, the output and how it wants to look, and the wish to end.
// Lives as long as the verb runs.
class Context {
  public:
    // Borrows the output. Throws Misuse when the options make no sense.
    Context(const CommonOptions& options, Output& output);
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;
    ~Context();

    const OutputStyle& Style() const { return style; }
    Output& Out() { return output; }
    Interrupts& Ends() { return interrupts; }
    // What the options and the environment say; only verbs that need a server look. Throws Misuse.
    const ServerAddress& Address();

    // The verb's connection, made when it is first asked for. Throws std::runtime_error when
    // nobody answers.
    ProtocolX::StorageClientX& Client();
    // Another connection; ended by its owner, inside an Interrupts::Call.
    std::unique_ptr<ProtocolX::StorageClientX> Connect();
    // Ends the verb's connection; the next Client makes a new one.
    void Disconnect();

    // One call, or a few: ask([&](StorageClientX& client) { return client.ListTracks(); }), cut
    // off by the limit of --timeout.
    template <typename Exchange>
    auto Ask(const Exchange& exchange) {
        ProtocolX::StorageClientX& connected = Client();
        const Interrupts::Call call(interrupts);
        return exchange(connected);
    }

    // Throws Interrupted with this text when the end was requested.
    void CheckInterrupt(const std::string& text = "Interrupted");

    // A line on the standard error: not with --quiet; only with --verbose; always.
    void Note(const std::string& text) const;
    void Detail(const std::string& text) const;
    static void Warn(const std::string& text);

    // In the chosen format; "-" when there is no such time point.
    std::string TimeOf(Time::TimePoint timePoint) const;
    // The same as a member of an object: null when there is none.
    void AddTime(JsonObject& object, std::string_view key, Time::TimePoint timePoint) const;

    // Throws Misuse when the output is a terminal and these bytes are no text for it.
    void RefuseOnTerminal(std::string_view bytes) const;

    // What a dry run says on the standard output, beginning with the verb: "Would create ...", or
    // the fields of an object and the text.
    void Would(const std::string& text, JsonObject fields);

    // The track's start and end, as a reader of TimeText needs them. Throws when there is no such
    // track.
    TimeBounds BoundsOf(std::int64_t track);

    // Before something is destroyed: returns when `sure` or when the user, asked on the terminal,
    // agrees. Throws Misuse where nobody can be asked, std::runtime_error when he declines.
    void Confirm(const std::string& question, bool sure);

  private:
    unsigned int ConnectMilliseconds() const;

    const OutputStyle style;
    const std::string server;
    std::optional<ServerAddress> address;
    const std::chrono::nanoseconds timeout;
    Output& output;
    Interrupts interrupts;
    std::unique_ptr<ProtocolX::StorageClientX> client;
};

}  // namespace Brantel::Tool
