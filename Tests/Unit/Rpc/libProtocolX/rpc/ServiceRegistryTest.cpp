#include "Unit/Rpc/libProtocolX/rpc/ServiceFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace BrantelStorageApi {
namespace {

using testing::ElementsAre;

const std::string released = "is_success: true TrackReader_Destructor { }";

class ServiceRegistryTest : public ServiceFixture {
  protected:
    std::string InvalidRelease() { return Failure(invalidRelease, "TrackReader_Destructor"); }
};

TEST_F(ServiceRegistryTest, TheFirstHandlesOfAFreshServiceAreConsecutiveFrom1) {
    EXPECT_EQ(MakeReader(), 1U);
    EXPECT_EQ(MakeWriter(), 2U);
    EXPECT_EQ(MakeReader(), 3U);
}

TEST_F(ServiceRegistryTest, TheLastFreedHandleIsReusedFirstAndOnlyThenANewOneIsTaken) {
    EXPECT_EQ(MakeReader(), 1U);
    EXPECT_EQ(MakeReader(), 2U);
    EXPECT_EQ(Release(1), released);
    EXPECT_EQ(Release(2), released);
    EXPECT_EQ(MakeReader(), 2U);
    EXPECT_EQ(MakeWriter(), 1U);
    EXPECT_EQ(MakeReader(), 3U);
}

TEST_F(ServiceRegistryTest, AReaderHandleAndAWriterHandleNeverCoincideWhileBothAreLive) {
    for (std::uint32_t pair = 0; pair < 10; ++pair) {
        EXPECT_EQ(MakeReader(), 2 * pair + 1);
        EXPECT_EQ(MakeWriter(), 2 * pair + 2);
    }
    Release(4);
    EXPECT_EQ(MakeReader(), 4U);
    EXPECT_EQ(MakeWriter(), 21U);
}

TEST_F(ServiceRegistryTest, ReleasingTheSameHandleTwiceAnswersDeletingAnInvalidRemoteObject) {
    MakeReader();
    EXPECT_EQ(Release(1), released);
    EXPECT_EQ(Release(1), InvalidRelease());
    EXPECT_EQ(MakeReader(), 1U);
    EXPECT_EQ(MakeReader(), 2U) << "the second release freed nothing";
}

TEST_F(ServiceRegistryTest, Operation9WithAWritersHandleReleasesTheWriter) {
    MakeWriter();
    EXPECT_EQ(Release(1), released);
    EXPECT_EQ(journal.Calls().back(), "writer.delete()");
}

TEST_F(ServiceRegistryTest, Operation13WithAReadersHandleReleasesTheReader) {
    MakeReader();
    EXPECT_EQ(Answer("operation: OPERATION_TrackWriter_Destructor "
                     "TrackWriter_Destructor { object_handle: 1 }"),
              "is_success: true TrackWriter_Destructor { }");
    EXPECT_EQ(journal.Calls().back(), "reader.delete()");
}

TEST_F(ServiceRegistryTest, ReleasingDoesNotCallDestroyOnServer) {
    class TellingReader : public RecordingReader {
      public:
        TellingReader(Journal& journal, bool& told) : RecordingReader(journal), told(told) {}
        void DestroyOnServer() override { told = true; }

      private:
        bool& told;
    };
    class TellingFactory : public ITrackReaderFactory {
      public:
        TellingFactory(Journal& journal, bool& told) : journal(journal), told(told) {}
        ITrackReader* CreateTrackReader(const long& /*trackId*/) override {
            return new TellingReader(journal, told);
        }

      private:
        Journal& journal;
        bool& told;
    };
    bool told = false;
    service = std::make_unique<OpenService>(
        nullptr, std::make_unique<TellingFactory>(journal, told), nullptr);
    MakeReader();
    Release(1);
    EXPECT_EQ(journal.Calls().back(), "reader.delete()");
    EXPECT_FALSE(told);
}

TEST_F(ServiceRegistryTest, ANullObjectCanBeReleased) {
    readerFactory->makesNull = true;
    EXPECT_EQ(MakeReader(), 1U);
    EXPECT_EQ(Release(1), released);
    EXPECT_EQ(MakeReader(), 1U);
}

TEST_F(ServiceRegistryTest, AFactoryThatThrowsUsesUpNoHandle) {
    MakeReader();
    Release(1);
    journal.FailWith([] { throw std::runtime_error("no track 5"); });
    EXPECT_EQ(Answer("operation: OPERATION_TrackReader_Constructor "
                     "TrackReader_Constructor { trackId: 5 }"),
              Failure("no track 5", "TrackReader_Constructor"));
    EXPECT_EQ(Answer("operation: OPERATION_TrackWriter_Constructor "
                     "TrackWriter_Constructor { trackId: 5 }"),
              Failure("no track 5", "TrackWriter_Constructor"));
    journal.FailWith(nullptr);
    EXPECT_EQ(MakeReader(), 1U);
    EXPECT_EQ(MakeReader(), 2U);
}

// Objects that tell their number when they are deleted.
class NumberedReader : public RecordingReader {
  public:
    NumberedReader(Journal& journal, long number)
        : RecordingReader(journal), journal(journal), number(number) {}
    ~NumberedReader() override { journal.Note(std::to_string(number)); }

  private:
    Journal& journal;
    long number;
};

class NumberedReaderFactory : public RecordingReaderFactory {
  public:
    explicit NumberedReaderFactory(Journal& journal)
        : RecordingReaderFactory(journal), journal(journal) {}
    ITrackReader* CreateTrackReader(const long& trackId) override {
        return trackId == 0 ? nullptr : new NumberedReader(journal, trackId);
    }

  private:
    Journal& journal;
};

TEST_F(ServiceRegistryTest, DestructionDeletesTheObjectsByHandleThenTheFactoriesThenTheStorage) {
    service = std::make_unique<OpenService>(std::make_unique<RecordingStorage>(journal),
                                            std::make_unique<NumberedReaderFactory>(journal),
                                            std::make_unique<RecordingWriterFactory>(journal));
    for (const long number : {101, 102, 0, 104, 105}) {
        MakeReader(number);
    }
    Release(2);
    MakeReader(202);
    journal.Clear();
    service.reset();
    EXPECT_THAT(journal.Calls(),
                ElementsAre("101", "reader.delete()", "202", "reader.delete()", "104",
                            "reader.delete()", "105", "reader.delete()", "readerFactory.delete()",
                            "writerFactory.delete()", "storage.delete()"));
}

TEST_F(ServiceRegistryTest, DestructionOfAnEmptyServiceDeletesNothing) {
    service = std::make_unique<OpenService>(nullptr, nullptr, nullptr);
    journal.Clear();
    service.reset();
    EXPECT_TRUE(journal.Calls().empty());
}

}  // namespace
}  // namespace BrantelStorageApi
