#include "ServerLog.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace Brantel::Server {

namespace {

// Whether the standard error leads to the journal, which then says so by device and file number.
bool IsJournal() {
    const char* const stream = std::getenv("JOURNAL_STREAM");
    struct stat file {};
    if (stream == nullptr || fstat(STDERR_FILENO, &file) != 0) {
        return false;
    }
    return std::string(stream) == std::to_string(file.st_dev) + ":" + std::to_string(file.st_ino);
}

LogLine::Style StyleOf(const LogOptions& options) {
    const bool hasPriority = options.priority == LogOptions::Priority::Always ||
                             (options.priority == LogOptions::Priority::Auto && IsJournal());
    return {options.format, hasPriority};
}

LogLevel LevelOf(const OperationRecord& record) {
    if (record.outcome != OperationRecord::Outcome::Done) {
        return LogLevel::Warning;
    }
    return record.kind == OperationRecord::Kind::Change ? LogLevel::Info : LogLevel::Debug;
}

const char* NameOf(OperationRecord::Outcome outcome) {
    switch (outcome) {
        case OperationRecord::Outcome::Done: return "done";
        case OperationRecord::Outcome::Failed: return "failed";
        case OperationRecord::Outcome::Denied: return "denied";
        case OperationRecord::Outcome::Limited: return "limited";
    }
    return "";
}

bool IsAudited(const OperationRecord& record) {
    return record.kind == OperationRecord::Kind::Change ||
           record.outcome == OperationRecord::Outcome::Denied;
}

// The storage's own words may quote what a client wanted to have written.
bool MayQuote(const OperationRecord& record) {
    return record.outcome == OperationRecord::Outcome::Failed &&
           (record.operation == "SetTrackProperties" ||
            record.operation == "RemoveTrackProperties" ||
            // Other failures of appends quote nothing, and say what an operator must know.
            (record.operation == "Append" && record.failure.find(" key ") != record.failure.npos));
}

LogEvent EventOf(const OperationRecord& record, LogLevel level) {
    LogEvent event;
    event.level = level;
    event.text = MayQuote(record) ? "for a reason that only the client is told"
                                  : std::string(record.failure);
    event.connectionId = record.connectionId;
    event.peer = record.peer;
    event.operation = record.operation;
    event.outcome = NameOf(record.outcome);
    event.trackId = record.trackId;
    event.duration = record.duration;
    return event;
}

}  // namespace

ServerLog::ServerLog(const LogOptions& options)
    : level(options.level),
      errors(std::make_unique<LogStream>(std::make_unique<LogOutput>(STDERR_FILENO),
                                         StyleOf(options))),
      audit(OpenAudit(options)) {}

ServerLog::~ServerLog() = default;

std::shared_ptr<LogStream> ServerLog::OpenAudit(const LogOptions& options) {
    if (options.auditFile.empty()) {
        return nullptr;
    }
    try {
        return std::make_shared<LogStream>(std::make_unique<LogOutput>(options.auditFile),
                                           LogLine::Style{options.format, false});
    } catch (const std::system_error& error) {
        throw std::runtime_error(std::string(error.what()) +
                                 "; make its folder for the server's user, or choose another file "
                                 "by --audit-file");
    }
}

std::shared_ptr<LogStream> ServerLog::Audit() const {
    const std::lock_guard guard(auditMutex);
    return audit;
}

void ServerLog::Reload(const LogOptions& options) {
    std::shared_ptr<LogStream> opened = OpenAudit(options);
    {
        const std::lock_guard guard(auditMutex);
        audit.swap(opened);
    }
    level = options.level;
    errors->SetStyle(StyleOf(options));
}

void ServerLog::WaitUntilWritten(std::chrono::milliseconds longest) {
    errors->WaitUntilWritten(longest);
    if (const std::shared_ptr<LogStream> file = Audit(); file != nullptr) {
        file->WaitUntilWritten(longest);
    }
}

void ServerLog::Log(const LogEvent& event) {
    if (event.level <= level) {
        errors->Put(event);
    }
}

void ServerLog::Say(LogLevel textLevel, const std::string& text) noexcept {
    try {
        LogEvent event;
        event.level = textLevel;
        event.text = text;
        Log(event);
    } catch (const std::exception&) {
        // Without memory for a line there is none.
    }
}

void ServerLog::OnOperation(const OperationRecord& record) noexcept {
    const LogLevel recordLevel = LevelOf(record);
    const bool isAudited = IsAudited(record);
    if (recordLevel > level && !isAudited) {
        return;
    }
    try {
        const LogEvent event = EventOf(record, recordLevel);
        const std::shared_ptr<LogStream> file = isAudited ? Audit() : nullptr;
        if (file != nullptr) {
            file->Put(event);
        }
        if (file == nullptr || recordLevel < LogLevel::Info) {
            Log(event);
        }
    } catch (const std::exception&) {
        // Without memory for a line there is none.
    }
}

void ServerLog::OnConnection(const Services::ServiceListenerEvent& event) noexcept {
    using Kind = Services::ServiceListenerEvent::Kind;
    try {
        LogEvent line;
        line.connectionId = event.peer.connectionId;
        line.peer = event.peer.text;
        switch (event.kind) {
            case Kind::ConnectionLost: line.text = "lost: " + event.text; break;
            case Kind::HandlerFailed:
                line.level = LogLevel::Error;
                line.text = "ended by a failure: " + event.text;
                break;
            case Kind::ConnectionRefused:
                line.level = LogLevel::Warning;
                line.text = "refused: " + event.text;
                break;
            case Kind::MessageRefused:
                line.level = LogLevel::Warning;
                line.text = "ended, a message was refused: " + event.text;
                break;
            case Kind::AcceptPaused:
                line.level = LogLevel::Error;
                line.text = "No connection can be accepted now: " + event.text;
                break;
            case Kind::ThreadMissing:
                line.level = LogLevel::Error;
                line.text = "waits for a thread: " + event.text;
                break;
        }
        Log(line);
    } catch (const std::exception&) {
        // Without memory for a line there is none.
    }
}

}  // namespace Brantel::Server
