#include "Support/FaultyFileCalls.h"
#include "Support/LocalStoreTest.h"

#include <libEngine/Local/File.h>

#include <gtest/gtest.h>

#include <fcntl.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <string>

namespace Brantel::Engine {
namespace {

class FileTest : public LocalStoreTest {
  protected:
    std::string Path() const { return folder.File("file"); }
    std::string Text(std::size_t size) const {
        std::string text(size, '\0');
        file.Read(text.data(), size, 0);
        return text;
    }

    FaultyFileCalls calls;
    File file{calls, folder.File("file"), O_RDWR | O_CREAT};
};

TEST_F(FileTest, ShortAndInterruptedWritesAreContinued) {
    for (const int error : {0, EINTR}) {
        calls.Inject({1, 3, error, FileCall::WriteVector});
        std::array<std::string, 3> parts{Bytes(1000, 1), "", Bytes(5000, 2)};
        std::array<iovec, 3> vector{};
        for (std::size_t index = 0; index < parts.size(); ++index) {
            vector[index] = {parts[index].data(), parts[index].size()};
        }
        file.Write(vector, 0);
        EXPECT_EQ(calls.CountFaults(), 3U);
        EXPECT_EQ(Text(6000), parts[0] + parts[2]);
    }
}

TEST_F(FileTest, ShortAndInterruptedReadsAreContinued) {
    const std::string text = Bytes(6000, 3);
    file.Write(text.data(), text.size(), 0);
    for (const int error : {0, EINTR}) {
        calls.Inject({1, 3, error, FileCall::ReadVector});
        EXPECT_EQ(Text(6000), text);
        EXPECT_EQ(calls.CountFaults(), 3U);
    }
}

TEST_F(FileTest, MorePartsThanOneCallTakesAreWritten) {
    std::string text = Bytes(3000, 4);
    std::vector<iovec> vector;
    for (char& byte : text) {
        vector.push_back({&byte, 1});
    }
    file.Write(vector, 0);
    EXPECT_EQ(Text(3000), text);
}

TEST_F(FileTest, AFullMediumIsNoSpaceAndSaysWhere) {
    calls.Inject({1, 1, ENOSPC, FileCall::WriteVector});
    EXPECT_EQ(ErrorOf(EngineError::Kind::NoSpace, [this] { file.Write("abc", 3, 8); }),
              Path() + ": writing of 3 bytes at 8 failed: No space left on device");
}

TEST_F(FileTest, AnErrorOfTheMediumIsIo) {
    calls.Inject({1, 1, EIO, FileCall::ReadVector});
    char byte = 0;
    EXPECT_EQ(ErrorOf(EngineError::Kind::Io, [&] { file.Read(&byte, 1, 5); }),
              Path() + ": reading of 1 bytes at 5 failed: Input/output error");
}

TEST_F(FileTest, AFailedFlushIsIoAlsoOnAFullMedium) {
    for (const int error : {EIO, ENOSPC}) {
        calls.Inject({1, 1, error, FileCall::FlushData});
        ErrorOf(EngineError::Kind::Io, [this] { file.FlushData(); });
    }
}

TEST_F(FileTest, AFileThatEndsTooEarlyIsDamaged) {
    file.Write("abc", 3, 0);
    std::array<char, 8> bytes{};
    EXPECT_EQ(ErrorOf(EngineError::Kind::Damaged, [&] { file.Read(bytes.data(), 8, 0); }),
              Path() + ": ends at 3, 5 bytes too early");
    bytes.fill('x');
    EXPECT_EQ(file.ReadSome(bytes.data(), bytes.size(), 0), 3U);
    EXPECT_EQ(std::string(bytes.data(), bytes.size()), std::string("abc\0\0\0\0\0", 8));
}

TEST_F(FileTest, ASymbolicLinkIsNotFollowed) {
    std::filesystem::create_symlink(Path(), folder.File("link"));
    EXPECT_EQ(
        ErrorOf(EngineError::Kind::Io, [this] { File(calls, folder.File("link"), O_RDONLY); }),
        folder.File("link") + ": opening failed: Too many levels of symbolic links");
}

// As the system answers whoever does not own the file.
class ForeignFileCalls : public FileCalls {
  public:
    int Open(const char* path, int flags, mode_t mode) override {
        if ((flags & O_NOATIME) != 0) {
            errno = EPERM;
            return -1;
        }
        return FileCalls::Open(path, flags, mode);
    }
};

TEST_F(FileTest, AFileOfSomebodyElseIsOpenedAllTheSame) {
    file.Write("abc", 3, 0);
    ForeignFileCalls foreign;
    std::string text(3, '\0');
    File(foreign, Path(), O_RDONLY).Read(text.data(), text.size(), 0);
    EXPECT_EQ(text, "abc");
}

TEST_F(FileTest, AFileIsLockedByOne) {
    const File other(calls, Path(), O_RDWR);
    EXPECT_TRUE(file.TryLock());
    EXPECT_FALSE(other.TryLock());
}

}  // namespace
}  // namespace Brantel::Engine
