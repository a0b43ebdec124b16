#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <StorageServer/LogLine.h>

#include <chrono>
#include <string>

namespace {

using Brantel::Server::LogEvent;
using Brantel::Server::LogLevel;
using Brantel::Server::LogLine;
using Brantel::Server::LogOptions;
using testing::EndsWith;
using testing::HasSubstr;

class LogLineTest : public testing::Test {
  protected:
    static LogEvent Text(const std::string& text, LogLevel level = LogLevel::Info) {
        LogEvent event;
        event.level = level;
        event.text = text;
        return event;
    }
    static LogEvent Denied() {
        LogEvent event = Text("Permission denied: ClearTrack needs role admin", LogLevel::Warning);
        event.connectionId = 7;
        event.peer = "/run/s process 3 user 0";
        event.operation = "ClearTrack";
        event.outcome = "denied";
        event.trackId = 5;
        event.duration = std::chrono::microseconds(12);
        return event;
    }
    static std::string Plain(const LogEvent& event) { return LogLine::Format(event, {}, time); }
    static std::string Json(const LogEvent& event) {
        return LogLine::Format(event, {LogOptions::Format::Json, false}, time);
    }

    static constexpr LogLine::Time time{std::chrono::milliseconds(1'763'745'965'123)};
};

TEST_F(LogLineTest, ALineHasTimeLevelAndText) {
    EXPECT_EQ(Plain(Text("Stopping")), "2025-11-21T17:26:05.123Z info: Stopping\n");
}

TEST_F(LogLineTest, ThePriorityOfTheJournalStandsForTimeAndLevel) {
    const LogLine::Style journal{LogOptions::Format::Text, true};
    EXPECT_EQ(LogLine::Format(Text("a", LogLevel::Error), journal, time), "<3>a\n");
    EXPECT_EQ(LogLine::Format(Text("a", LogLevel::Warning), journal, time), "<4>a\n");
    EXPECT_EQ(LogLine::Format(Text("a", LogLevel::Info), journal, time), "<6>a\n");
    EXPECT_EQ(LogLine::Format(Text("a", LogLevel::Debug), journal, time), "<7>a\n");
}

TEST_F(LogLineTest, ACallIsShownWithWhoWhatTrackOutcomeAndDuration) {
    EXPECT_EQ(Plain(Denied()),
              "2025-11-21T17:26:05.123Z warning: connection 7 from /run/s process 3 user 0: "
              "ClearTrack of track 5 denied after 0.012 ms: Permission denied: ClearTrack needs "
              "role admin\n");
    LogEvent done = Denied();
    done.outcome = "done";
    done.text = "";
    done.trackId = -1;
    EXPECT_THAT(Plain(done), EndsWith(": ClearTrack done after 0.012 ms\n"));
}

TEST_F(LogLineTest, InJsonItIsOneObjectALine) {
    EXPECT_EQ(Json(Denied()),
              "{\"time\":\"2025-11-21T17:26:05.123Z\",\"level\":\"warning\",\"text\":\"Permission "
              "denied: ClearTrack needs role admin\",\"connection\":7,\"peer\":\"/run/s process 3 "
              "user 0\",\"operation\":\"ClearTrack\",\"outcome\":\"denied\",\"track\":5,"
              "\"duration_ms\":0.012}\n");
    EXPECT_EQ(Json(Text("a")),
              "{\"time\":\"2025-11-21T17:26:05.123Z\",\"level\":\"info\",\"text\":\"a\"}\n");
    EXPECT_EQ(LogLine::Format(Text("a"), {LogOptions::Format::Json, true}, time).substr(0, 4),
              "<6>{");
}

TEST_F(LogLineTest, NoTextCanMakeALineOfItsOwn) {
    EXPECT_EQ(LogLine::Escape("a\nb\r\t\x1b[31m\x7f\\"), "a\\nb\\r\\t\\x1b[31m\\x7f\\\\");
    EXPECT_EQ(LogLine::Escape(std::string("\0x", 2)), "\\x00x");
    EXPECT_THAT(Json(Text("a\nb\x1b")), HasSubstr("\"a\\nb\\u001b\""));
}

TEST_F(LogLineTest, OtherScriptsAreShownAndWhatIsNoUtf8IsNot) {
    EXPECT_EQ(LogLine::Escape("Jalape\xc3\xb1o \xe2\x82\xac \xf0\x9f\x8e\xa5"),
              "Jalape\xc3\xb1o \xe2\x82\xac \xf0\x9f\x8e\xa5");
    // The second set of control characters, an overlong slash, a surrogate, and cut-off ends.
    EXPECT_EQ(LogLine::Escape("\xc2\x9b"), "\\xc2\\x9b");
    EXPECT_EQ(LogLine::Escape("\xc0\xaf"), "\\xc0\\xaf");
    EXPECT_EQ(LogLine::Escape("\xe0\x80\xaf"), "\\xe0\\x80\\xaf");
    EXPECT_EQ(LogLine::Escape("\xed\xa0\x80"), "\\xed\\xa0\\x80");
    EXPECT_EQ(LogLine::Escape("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");
    EXPECT_EQ(LogLine::Escape("\xe2\x82"), "\\xe2\\x82");
    EXPECT_EQ(LogLine::Escape("\xff"), "\\xff");
    EXPECT_THAT(Json(Text("\xff")), HasSubstr("\"\\ufffd\""));
}

TEST_F(LogLineTest, ALongTextIsCutOff) {
    EXPECT_THAT(Plain(Text(std::string(1024, 'a'))), EndsWith("aa\n"));
    EXPECT_THAT(Plain(Text(std::string(1025, 'a'))), EndsWith("aa...\n"));
    EXPECT_EQ(Plain(Text(std::string(5000, 'a'))).size(),
              Plain(Text("")).size() + 1024 + std::string("...").size());
}

TEST_F(LogLineTest, RepetitionsAndDroppedLinesAreCounted) {
    EXPECT_THAT(Plain(LogLine::Repeated(LogLevel::Info, 41)),
                EndsWith("info: last line repeated 41 times\n"));
    EXPECT_THAT(Plain(LogLine::Repeated(LogLevel::Info, 1)), EndsWith(" repeated 1 time\n"));
    EXPECT_THAT(Plain(LogLine::Dropped(2)),
                EndsWith("warning: 2 lines of the log were dropped: they could not be written\n"));
}

}  // namespace
