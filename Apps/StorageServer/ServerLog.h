#pragma once

#include "IOperationObserver.h"
#include "LogEvent.h"
#include "LogOptions.h"
#include "LogStream.h"

#include <libServices/ServiceListener.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>

namespace Brantel::Server {

// What an operator is told of a running server, one line each on the standard error, and who
// changed what, there or in a file of its own. Whoever logs waits for nobody: see LogStream.
// Thread-safe.
//
// Logged of the calls of clients: each that failed, was denied or limited (warning), each that
// changed tracks, properties or protections (info), all others (debug). Neither payload nor keys
// and values of properties are in it: what a client is told of wrong properties may quote them, and
// is left out.
class ServerLog : public IOperationObserver {
  public:
    // Throws std::runtime_error that names the audit file when it can't be opened.
    explicit ServerLog(const LogOptions& options);
    ~ServerLog() override;
    ServerLog(const ServerLog&) = delete;
    ServerLog& operator=(const ServerLog&) = delete;

    void Say(LogLevel level, const std::string& text) noexcept;
    void OnOperation(const OperationRecord& record) noexcept override;
    void OnConnection(const Services::ServiceListenerEvent& event) noexcept;

    // Waits until what was logged has been written, or twice `longest`.
    void WaitUntilWritten(std::chrono::milliseconds longest);

    // Takes over other options and opens the audit file anew. Throws as the constructor does; then
    // everything stays as it was.
    void Reload(const LogOptions& options);

  private:
    static std::shared_ptr<LogStream> OpenAudit(const LogOptions& options);
    void Log(const LogEvent& event);
    std::shared_ptr<LogStream> Audit() const;

    std::atomic<LogLevel> level;
    const std::unique_ptr<LogStream> errors;
    mutable std::mutex auditMutex;  // guards what follows
    std::shared_ptr<LogStream> audit;
};

}  // namespace Brantel::Server
