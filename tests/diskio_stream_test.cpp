// The stream on a platform file: the suite of all streams, how files are opened and shared, and
// what is left where platform calls fail.
#include "tests/diskio_support.h"
#include "tests/stream_suite.h"

namespace {

using diskio_test::Faults;
using diskio_test::TempFolder;
using platform::Call;

class FileStreams {
 public:
  DIOFile* Create() { return DIOFile::OpenFile(folder.Path("stream"), DIOFile::OPENMODE_CREATE); }
  DIOFile* Reopen() { return DIOFile::OpenFile(folder.Path("stream"), DIOFile::OPENMODE_OPEN); }
  bool Close(DIOFile*& file) { return DIOFile::CloseFile(file); }
  std::string Bytes() { return folder.Get("stream"); }

 private:
  TempFolder folder;
};

class FileStreamTest : public ::testing::Test {
 protected:
  void TearDown() override { EXPECT_TRUE(file == nullptr || DIOFile::CloseFile(file)); }

  DIOFile* Open(DIOFile::DIOOpenMode mode) { return DIOFile::OpenFile(folder.Path("f"), mode); }

  // Begins a new file as the stream of the test, which ends it.
  void Create() { ASSERT_NE(file = Open(DIOFile::OPENMODE_CREATE), nullptr); }

  TempFolder folder;
  DIOFile* file = nullptr;
};

TEST_F(FileStreamTest, OpenModesDecideWhatBecomesOfTheFile) {
  const struct {
    const char* after;
    qz::uint64 start;
    DIOFile::DIOOpenMode mode;
  } cases[] = {{"old text", 0, DIOFile::OPENMODE_OPEN},
               {"new text", 0, DIOFile::OPENMODE_MODIFY},
               {"old textnew", 8, DIOFile::OPENMODE_APPEND},
               {"new", 0, DIOFile::OPENMODE_CREATE}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.mode);
    const bool writes = c.mode != DIOFile::OPENMODE_OPEN;
    if (c.mode != DIOFile::OPENMODE_CREATE) {
      EXPECT_EQ(Open(c.mode), nullptr);
    }
    folder.Put("f", "old text");
    ASSERT_NE(file = Open(c.mode), nullptr);
    EXPECT_EQ(Open(DIOFile::OPENMODE_OPEN), nullptr);  // an open file is shut to all others
    EXPECT_EQ(Open(DIOFile::OPENMODE_CREATE), nullptr);
    EXPECT_EQ(file->GetAccessMode(), c.mode);
    EXPECT_EQ(stream_suite::PositionOf(file), c.start);
    EXPECT_EQ(stream_suite::WriteBytes(file, "new"), writes);
    // A reference that could not be written cannot be filled either.
    EXPECT_TRUE(writes || !file->WriteLabel("a"));
    EXPECT_EQ(DIOFile::CloseFile(file), writes);
    EXPECT_EQ(file, nullptr);
    EXPECT_EQ(folder.Get("f"), c.after);
    std::filesystem::permissions(folder.Native("f"), std::filesystem::perms::owner_read);
    EXPECT_EQ(Open(DIOFile::OPENMODE_CREATE), nullptr);  // a read-only file is not replaced
    std::filesystem::remove(folder.Native("f"));
  }
}

TEST_F(FileStreamTest, SizesAndPositionsReachBeyond4GiB) {
  Create();
  qz::ulong narrow = 77;
  qz::uint64 wide = 0;
  ASSERT_TRUE(file->WriteLabel("far"));
  // The last place that 32 bits can name reads as a failure in 32 bits only.
  ASSERT_TRUE(file->SetPosition(qz::uint64{0xFFFFFFFEu}, DIOFile::SEEKMODE_START));
  ASSERT_TRUE(file->Write('x'));
  EXPECT_FALSE(file->GetPosition(narrow));
  EXPECT_TRUE(file->GetPosition(wide) && wide == 0xFFFFFFFFu);
  EXPECT_TRUE(file->GetFileSize(wide) && wide == 0xFFFFFFFFu);

  ASSERT_TRUE(file->SetPosition(qz::uint64{0x123456789u}, DIOFile::SEEKMODE_START));
  ASSERT_TRUE(file->SetLabel("far") && file->Write('x'));
  EXPECT_FALSE(file->GetFileSize(narrow));
  EXPECT_EQ(narrow, 77u);
  EXPECT_TRUE(file->GetFileSize(wide) && wide == 0x12345678Au);
  EXPECT_TRUE(file->SetPosition(qz::int64{-0x123456788}, DIOFile::SEEKMODE_CURRENT));
  EXPECT_EQ(stream_suite::PositionOf(file), 2u);
  EXPECT_TRUE(DIOFile::CloseFile(file));

  ASSERT_NE(file = Open(DIOFile::OPENMODE_OPEN), nullptr);
  EXPECT_TRUE(file->Read(narrow) && narrow == 0x23456789u);
}

TEST_F(FileStreamTest, TimesAreThoseTheFolderTells) {
  Create();
  DIOFile::DIOFileTime times[3] = {};
  Faults faults;
  faults.Fail(Call::kGetFileTime);
  EXPECT_FALSE(file->GetFileTime(times[0], times[1], times[2]));
  EXPECT_EQ(times[0].year + times[1].year + times[2].year, 0);
  EXPECT_TRUE(file->GetFileTime(times[0], times[1], times[2]));
  DIOFile::DIOFileInfo info;
  ASSERT_TRUE(DIOFile::FindFirst(folder.Path("f"), info) && DIOFile::FindClose(info));
  EXPECT_TRUE(info.timeWrite == times[2] && info.timeCreate == times[0]);
}

TEST_F(FileStreamTest, OperationsMakeNoMorePlatformCallsThanTheyMust) {
  Create();
  Faults faults;
  const std::string bytes(100000, 'x');
  EXPECT_TRUE(file->Write(1.0) && file->Write(qz::ushort{1}) && file->WriteStringZ("a\nb"));
  EXPECT_EQ(faults.Take(Call::kWriteFile), 3);
  EXPECT_TRUE(file->Write(bytes.data(), 1, 100000) && file->Write(bytes.data(), 2, 50000));
  EXPECT_EQ(faults.Take(Call::kWriteFile), 2);
  file->SetEndian(DIOFile::ENDIAN_BIG);
  EXPECT_TRUE(file->Write(bytes.data(), 2, 50000));  // 65536 bytes at a time
  EXPECT_EQ(faults.Take(Call::kWriteFile), 2);

  DIOFile* target = DIOFile::OpenFile(folder.Path("target"), DIOFile::OPENMODE_CREATE);
  ASSERT_NE(target, nullptr);
  ASSERT_TRUE(file->SetPosition(qz::ulong{0}, DIOFile::SEEKMODE_START));
  EXPECT_TRUE(target->Insert(file, 65537) && target->Insert(file, 65536));
  EXPECT_EQ(faults.Take(Call::kReadFile), 3);
  EXPECT_EQ(faults.Take(Call::kWriteFile), 3);
  for (const Call call : {Call::kReadFile, Call::kWriteFile}) {
    for (const int n : {1, 2}) {
      ASSERT_TRUE(file->SetPosition(qz::ulong{0}, DIOFile::SEEKMODE_START));
      faults.Fail(call, n);
      EXPECT_FALSE(target->Insert(file, 65537));
    }
  }
  EXPECT_TRUE(DIOFile::CloseFile(target));
}

TEST_F(FileStreamTest, FailedCallsMoveNothingAndAreToldAtOnce) {
  Create();
  ASSERT_TRUE(stream_suite::WriteBytes(file, std::string(200000, 'x')));
  ASSERT_TRUE(file->SetPosition(qz::ulong{0}, DIOFile::SEEKMODE_START));
  file->SetEndian(DIOFile::ENDIAN_BIG);
  Faults faults;
  std::string buffer(200000, '.');

  faults.Fail(Call::kReadFile, 2);
  EXPECT_FALSE(file->Read(buffer.data(), 2, 100000));
  EXPECT_EQ(buffer.find('.'), 65536u);
  EXPECT_EQ(stream_suite::PositionOf(file), 65536u);
  faults.Fail(Call::kWriteFile, 2);
  EXPECT_FALSE(file->Write(buffer.data(), 8, 20000));
  EXPECT_EQ(stream_suite::PositionOf(file), 131072u);
  faults.Fail(Call::kWriteFile);
  EXPECT_FALSE(file->WriteString("text"));
  for (const int n : {1, 2, 3}) {
    faults.Fail(Call::kWriteFile, n);
    EXPECT_FALSE(file->Write(DIOFile::v32{1, 2, 3}));
  }
  EXPECT_EQ(stream_suite::PositionOf(file), 131084u);

  qz::uint64 wide = 5;
  qz::ulong narrow = 5;
  faults.Fail(Call::kGetFileSize, 1);
  faults.Fail(Call::kGetFileSize, 2);
  EXPECT_FALSE(file->GetFileSize(wide) || file->GetFileSize(narrow));
  for (int i = 1; i <= 5; ++i)
    faults.Fail(Call::kSetFilePointer, i);
  EXPECT_FALSE(file->GetPosition(wide) || file->GetPosition(narrow));
  EXPECT_FALSE(file->SetPosition(wide, DIOFile::SEEKMODE_START));
  EXPECT_FALSE(file->SetPosition(narrow, DIOFile::SEEKMODE_START));
  EXPECT_FALSE(file->SetLabel("nowhere"));
  EXPECT_EQ(wide + narrow, 10u);
  EXPECT_EQ(file->GetLabel("nowhere"), ~qz::uint64{0});
  EXPECT_EQ(stream_suite::PositionOf(file), 131084u);
}

TEST_F(FileStreamTest, AFailedLateReferenceOrCloseIsToldByTheClose) {
  const struct {
    Call call;
    int n;
    const char* after;
  } cases[] = {{Call::kCloseHandle, 1, "0C000000 0C000000 0C000000"},  // but it is closed
               {Call::kWriteFile, 2, "0C000000 00000000 00000000"}};   // the walk ends there
  for (const auto& c : cases) {
    Create();
    for (const char* name : {"a", "b", "c"})
      EXPECT_TRUE(file->WriteLabel(name));
    for (const char* name : {"a", "b", "c"})
      EXPECT_TRUE(file->SetLabel(name));
    Faults faults;
    faults.Fail(c.call, c.n);
    EXPECT_FALSE(DIOFile::CloseFile(file));
    EXPECT_EQ(file, nullptr);
    EXPECT_EQ(folder.Get("f"), stream_suite::FromHex(c.after));
  }
}

TEST_F(FileStreamTest, AReferenceAtAnUnknownPlaceGoesOverNothing) {
  Create();
  ASSERT_TRUE(stream_suite::WriteBytes(file, "head"));
  Faults faults;
  faults.Fail(Call::kSetFilePointer);
  EXPECT_TRUE(file->WriteLabel("a") && file->SetLabel("a"));
  EXPECT_TRUE(DIOFile::CloseFile(file));
  EXPECT_EQ(folder.Get("f"), std::string("head\0\0\0\0", 8));
}

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(OnFile, StreamSuite, FileStreams);
