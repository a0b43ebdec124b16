#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <StorageServer/ServerLog.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>

namespace {

using Brantel::Server::LogLevel;
using Brantel::Server::LogOptions;
using Brantel::Server::OperationRecord;
using Brantel::Server::ServerLog;
using Brantel::Services::ServiceListenerEvent;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

// The standard error of the test is a file meanwhile.
class ServerLogTest : public testing::Test {
  protected:
    ServerLogTest() {
        options.priority = LogOptions::Priority::Always;
        const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        dup2(file, STDERR_FILENO);
        close(file);
    }
    ~ServerLogTest() override {
        log.reset();
        dup2(before, STDERR_FILENO);
        close(before);
    }

    void Open() { log.emplace(options); }
    static std::string TextOf(const std::string& file) {
        std::ifstream stream(file);
        return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    }
    // All that was logged.
    std::string Logged() {
        log.reset();
        return TextOf(path);
    }
    static OperationRecord Record(const char* operation, OperationRecord::Kind kind,
                                  OperationRecord::Outcome outcome = Outcome::Done,
                                  const char* failure = "") {
        OperationRecord record;
        record.operation = operation;
        record.kind = kind;
        record.outcome = outcome;
        record.failure = failure;
        record.trackId = 5;
        record.connectionId = 7;
        record.peer = "somebody";
        return record;
    }

    using Kind = OperationRecord::Kind;
    using Outcome = OperationRecord::Outcome;
    const Brantel::Tests::TemporaryFolder folder;
    const std::string path = folder.File("log");
    const std::string auditPath = folder.File("audit");
    const int before = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    LogOptions options;
    std::optional<ServerLog> log;
};

TEST_F(ServerLogTest, ChangesAndFailuresAreLoggedAndAllElseIsNot) {
    Open();
    log->OnOperation(Record("ClearTrack", Kind::Change));
    log->OnOperation(Record("GetChunk", Kind::Read));
    log->OnOperation(Record("Append", Kind::Append));
    log->OnOperation(Record("Append", Kind::Append, Outcome::Failed, "it is full"));
    EXPECT_EQ(Logged(),
              "<6>connection 7 from somebody: ClearTrack of track 5 done after 0.000 ms\n"
              "<4>connection 7 from somebody: Append of track 5 failed after 0.000 ms: it is "
              "full\n");
}

TEST_F(ServerLogTest, TheLevelSaysWhatIsLogged) {
    options.level = LogLevel::Error;
    Open();
    log->Say(LogLevel::Warning, "a warning");
    log->OnOperation(Record("ClearTrack", Kind::Change));
    options.level = LogLevel::Debug;
    log->Reload(options);
    log->OnOperation(Record("GetChunk", Kind::Read));
    EXPECT_EQ(Logged(), "<7>connection 7 from somebody: GetChunk of track 5 done after 0.000 ms\n");
}

TEST_F(ServerLogTest, WhatQuotesPropertiesIsLeftOut) {
    Open();
    log->OnOperation(Record("SetTrackProperties", Kind::Change, Outcome::Failed,
                            "property storage.secret is no setting"));
    log->OnOperation(Record("SetTrackProperties", Kind::Change, Outcome::Denied, "Permission"));
    const std::string text = Logged();
    EXPECT_THAT(text, Not(HasSubstr("secret")));
    EXPECT_THAT(text, HasSubstr("for a reason that only the client is told"));
    EXPECT_THAT(text, HasSubstr("Permission"));
}

TEST_F(ServerLogTest, WhatQuotesTheKeyOfAChunkIsLeftOutAndOtherFailuresOfAppendsAreNot) {
    Open();
    log->OnOperation(Record("Append", Kind::Append, Outcome::Failed,
                            "Track 5: data key secret occurs twice in the chunk"));
    log->OnOperation(Record("Append", Kind::Append, Outcome::Failed,
                            "Track 5: time point 5 is not after the last one, 9"));
    const std::string text = Logged();
    EXPECT_THAT(text, Not(HasSubstr("secret")));
    EXPECT_THAT(text, HasSubstr("time point 5 is not after the last one, 9"));
}

TEST_F(ServerLogTest, TheAuditHasAFileOfItsOwnWhateverTheLevel) {
    options.auditFile = auditPath;
    options.level = LogLevel::Error;
    Open();
    log->OnOperation(Record("ClearTrack", Kind::Change));
    log->OnOperation(Record("GetChunk", Kind::Read, Outcome::Denied, "Permission denied"));
    log->OnOperation(Record("GetChunk", Kind::Read, Outcome::Failed, "no such track"));
    EXPECT_EQ(Logged(), "");
    const std::string audit = TextOf(auditPath);
    EXPECT_THAT(audit, HasSubstr(" info: connection 7 from somebody: ClearTrack of track 5"));
    EXPECT_THAT(audit, EndsWith("denied after 0.000 ms: Permission denied\n"));
    struct stat file {};
    ASSERT_EQ(stat(auditPath.c_str(), &file), 0);
    EXPECT_EQ(file.st_mode & 07U, 0U);
}

TEST_F(ServerLogTest, WithAnAuditFileTheLogHasOnlyWhatWentWrong) {
    options.auditFile = auditPath;
    Open();
    log->OnOperation(Record("ClearTrack", Kind::Change));
    log->OnOperation(Record("DeleteTrack", Kind::Change, Outcome::Denied));
    EXPECT_EQ(Logged(),
              "<4>connection 7 from somebody: DeleteTrack of track 5 denied after 0.000 ms\n");
}

TEST_F(ServerLogTest, AReloadOpensTheAuditFileAnew) {
    options.auditFile = auditPath;
    Open();
    log->OnOperation(Record("ClearTrack", Kind::Change));
    std::filesystem::rename(auditPath, folder.File("audit.1"));
    log->Reload(options);
    log->OnOperation(Record("DeleteTrack", Kind::Change));
    log.reset();
    EXPECT_THAT(TextOf(folder.File("audit.1")), HasSubstr("ClearTrack"));
    EXPECT_THAT(TextOf(auditPath), HasSubstr("DeleteTrack"));
    EXPECT_THAT(TextOf(auditPath), Not(HasSubstr("ClearTrack")));
}

TEST_F(ServerLogTest, AReloadThatFailsLeavesEverythingAsItWas) {
    options.auditFile = auditPath;
    Open();
    LogOptions wrong = options;
    wrong.auditFile = folder.File("nowhere/audit");
    wrong.level = LogLevel::Debug;
    EXPECT_THROW(log->Reload(wrong), std::runtime_error);
    log->OnOperation(Record("GetChunk", Kind::Read));
    log->OnOperation(Record("ClearTrack", Kind::Change));
    EXPECT_EQ(Logged(), "");
    EXPECT_THAT(TextOf(auditPath), HasSubstr("ClearTrack"));
}

TEST_F(ServerLogTest, ConnectionsThatEndOtherwiseThanTheyShouldAreLogged) {
    Open();
    ServiceListenerEvent event;
    event.peer.connectionId = 3;
    event.peer.text = "there";
    event.text = "why";
    using EventKind = ServiceListenerEvent::Kind;
    for (const EventKind kind :
         {EventKind::ConnectionLost, EventKind::HandlerFailed, EventKind::ConnectionRefused,
          EventKind::MessageRefused, EventKind::ThreadMissing}) {
        event.kind = kind;
        log->OnConnection(event);
    }
    event = {};
    event.kind = EventKind::AcceptPaused;
    event.text = "why";
    log->OnConnection(event);
    EXPECT_EQ(Logged(),
              "<6>connection 3 from there: lost: why\n"
              "<3>connection 3 from there: ended by a failure: why\n"
              "<4>connection 3 from there: refused: why\n"
              "<4>connection 3 from there: ended, a message was refused: why\n"
              "<3>connection 3 from there: waits for a thread: why\n"
              "<3>No connection can be accepted now: why\n");
}

TEST_F(ServerLogTest, TheJournalIsKnownByItsDeviceAndFile) {
    options.priority = LogOptions::Priority::Auto;
    Open();
    log->Say(LogLevel::Info, "not the journal");
    log.reset();
    struct stat file {};
    ASSERT_EQ(fstat(STDERR_FILENO, &file), 0);
    const std::string stream = std::to_string(file.st_dev) + ":" + std::to_string(file.st_ino);
    ASSERT_EQ(setenv("JOURNAL_STREAM", stream.c_str(), 1), 0);
    Open();
    unsetenv("JOURNAL_STREAM");
    log->Say(LogLevel::Info, "the journal");
    const std::string text = Logged();
    EXPECT_THAT(text, HasSubstr(" info: not the journal\n"));
    EXPECT_THAT(text, EndsWith("\n<6>the journal\n"));
}

}  // namespace
