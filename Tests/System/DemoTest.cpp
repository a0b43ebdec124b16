// The demonstration as a user starts it, in a short form.

#include "Support/ProcessState.h"
#include "Support/ProgramRun.h"
#include "Support/TemporaryFolder.h"

#include <libTime/TimePoint.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <MovieDemo/Movie.h>

#include <chrono>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

namespace Brantel::Tests {
namespace {

using MovieDemo::Movie;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

class DemoTest : public testing::Test {
  protected:
    // The exit code; with its temporary files in the folder that is named.
    int Run(const std::string& seconds, const std::string& temporaryFolder) {
        run = std::make_unique<ProgramRun>(
            std::vector<std::string>{BRANTEL_DEMO, "--seconds", seconds, "--build", BRANTEL_BUILD,
                                     "--output", Output()},
            std::vector<std::pair<std::string, std::string>>{{"TMPDIR", temporaryFolder}});
        return run->Wait(std::chrono::minutes(4));
    }
    std::string Output() const { return output.File("demo output"); }
    std::string Pictures() const { return Output() + "/pictures"; }
    std::vector<std::string> Lines() const {
        std::vector<std::string> lines;
        std::istringstream text(run->Output());
        for (std::string line; std::getline(text, line);) {
            lines.push_back(line);
        }
        return lines;
    }

    TemporaryFolder temporary;
    TemporaryFolder output;
    std::unique_ptr<ProgramRun> run;
};

TEST_F(DemoTest, ItSaysInFiveLinesWhatItDid) {
    ASSERT_EQ(Run("2", temporary.Path()), 0) << run->Errors();
    EXPECT_THAT(Lines(),
                ElementsAre(StartsWith("Made      50 pictures of 640x360"),
                            StartsWith("Recorded  50 chunks"), StartsWith("Read back over tcp:"),
                            AllOf(StartsWith("Compared"),
                                  HasSubstr(": no difference; again after "
                                            "the server was restarted: "),
                                  EndsWith(" answers, no difference")),
                            HasSubstr(Output() + "/pictures")));
    EXPECT_EQ(run->Errors(), "");
}

TEST_F(DemoTest, ThePicturesThatWereReadMove) {
    ASSERT_EQ(Run("2", temporary.Path()), 0) << run->Errors();
    const Movie read = Movie::Load(Pictures(), Time::TimePoint());
    ASSERT_EQ(read.FrameCount(), 50U);
    for (std::size_t frame = 1; frame < read.FrameCount(); ++frame) {
        EXPECT_NE(read.Image(frame), read.Image(frame - 1)) << frame;
    }
}

TEST_F(DemoTest, TheMovieHoldsThePicturesAsTheyWereRead) {
    ASSERT_EQ(Run("1", temporary.Path()), 0) << run->Errors();
    ProgramRun split({"/usr/bin/ffmpeg", "-loglevel", "error", "-nostdin", "-i",
                      Output() + "/movie.avi", "-c", "copy", "-start_number", "0",
                      temporary.File("image-%06d.jpg")});
    ASSERT_EQ(split.Wait(), 0) << split.Errors();
    ProgramRun compare({"/bin/bash", "-c",
                        "for i in '" + Pictures() + "'/image-*.jpg; do cmp \"$i\" '" +
                            temporary.Path() + "'/${i##*/} || exit 1; done"});
    EXPECT_EQ(compare.Wait(), 0) << compare.Errors();
    EXPECT_EQ(CountEntries(temporary.Path()), 25U);
}

TEST_F(DemoTest, NothingIsLeftInTheTemporaryFolder) {
    ASSERT_EQ(Run("1", temporary.Path()), 0) << run->Errors();
    EXPECT_EQ(CountEntries(temporary.Path()), 0U);
}

TEST_F(DemoTest, ASecondRunReplacesWhatTheFirstLeft) {
    ASSERT_EQ(Run("2", temporary.Path()), 0) << run->Errors();
    ASSERT_EQ(Run("1", temporary.Path()), 0) << run->Errors();
    EXPECT_EQ(CountEntries(Pictures()), 2U * 25U);
}

TEST_F(DemoTest, AServerThatDoesNotStartIsAFailureAndLeavesNothing) {
    const std::string tooLong = temporary.File(std::string(100, 'a'));
    std::filesystem::create_directory(tooLong);
    EXPECT_EQ(Run("1", tooLong), 1);
    EXPECT_THAT(run->Errors(), HasSubstr("the server did not start"));
    EXPECT_EQ(CountEntries(tooLong), 0U);
}

TEST_F(DemoTest, WrongArgumentsAreMisuse) {
    EXPECT_EQ(Run("0", temporary.Path()), 2);
    EXPECT_THAT(run->Errors(), HasSubstr("--seconds 0 is not within 1 to 3600"));
    EXPECT_EQ(CountEntries(temporary.Path()), 0U);
}

}  // namespace
}  // namespace Brantel::Tests
