// Memory that runs out: each allocation of an operation fails in turn, once and then for good from
// there. Nothing throws, a success is a whole one, and a failure leaves what it should.
#include <cstdlib>
#include <new>

#include "common/qzassert.h"
#include "tests/diskio_support.h"
#include "tests/stream_suite.h"

namespace {

struct {
  int untilFailure = 0;  // 0: off
  bool forGood = false;
  bool failed = false;
} allocations;

void* Allocate(std::size_t size) noexcept {
  if (allocations.untilFailure > 0 && --allocations.untilFailure == 0) {
    allocations.failed = true;
    if (allocations.forGood) allocations.untilFailure = 1;
    return nullptr;
  }
  return std::malloc(size != 0 ? size : 1);
}

// Out of line: a compiler that saw `new` end in `free` would warn.
[[gnu::noinline]] void Release(void* memory) noexcept {
  std::free(memory);
}

}  // namespace

// The forms for arrays and with sizes end in these.
void* operator new(std::size_t size) {
  void* const memory = Allocate(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return Allocate(size);
}
void operator delete(void* memory) noexcept {
  Release(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  Release(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
  Release(memory);
}

namespace {

class MemoryTest : public ::testing::Test {
 protected:
  // The text class asserts its narrow buffer; it goes on with an empty text.
  void SetUp() override {
    former = qz::SetAssertHandler([](const char*, const char*, int) {});
  }
  void TearDown() override { qz::SetAssertHandler(former); }

  // `body` runs with the n-th allocation failing until that is one more than it makes; `after`
  // gets its result and runs with memory.
  template <typename Body, typename After>
  void FailEach(Body body, After after) {
    for (const bool forGood : {false, true}) {
      bool failed = true;
      for (int n = 1; failed; ++n) {
        SCOPED_TRACE(testing::Message()
                     << "allocation " << n << (forGood ? " and all behind" : ""));
        ASSERT_LT(n, 1000);
        allocations = {n, forGood, false};
        const bool result = body();
        failed = allocations.failed;
        allocations = {};
        EXPECT_TRUE(result || failed);
        after(result);
      }
    }
  }

  diskio_test::TempFolder folder;
  qz::AssertHandler former = nullptr;
};

TEST_F(MemoryTest, StreamsAndTheirTextsAreWholeOrNotAtAll) {
  const qz::string path = folder.Path("f");
  DIOFile* file = nullptr;
  FailEach([&] { return (file = DIOFile::OpenFile(path, DIOFile::OPENMODE_CREATE)) != nullptr; },
           [&](bool opened) { EXPECT_TRUE(!opened || DIOFile::CloseFile(file)); });

  file = DIOFile::OpenFile(path, DIOFile::OPENMODE_CREATE);
  ASSERT_NE(file, nullptr);
  const auto rewind = [&] { file->SetPosition(qz::ulong{0}, DIOFile::SEEKMODE_START); };
  const std::string text(5000, '\n');
  const qz::string format = "a longer format: %s";
  FailEach([&] { return file->WriteStringZ(format, text.c_str()); },
           [&](bool written) {
             EXPECT_EQ(stream_suite::PositionOf(file), written ? 17 + 2 * 5000 + 1 : 0u);
             rewind();
           });
  qz::string read;
  FailEach([&] { return file->ReadString(read); },
           [&](bool whole) {
             EXPECT_EQ(read.size() == 17 + 2 * 5000, whole);
             rewind();
           });

  qz::string name = "a label with a name that is kept on the heap";
  FailEach([&] { return file->WriteLabel(name); },
           [&](bool written) {
             EXPECT_EQ(stream_suite::PositionOf(file), written ? 4u : 0u);
             rewind();
           });
  FailEach([&] { return file->SetLabel(name); },
           [&](bool set) { EXPECT_EQ(file->GetLabel(name) == 0, set); });
  // Filling the references needs no memory.
  FailEach([&] { return file == nullptr || DIOFile::CloseFile(file); }, [](bool) {});
}

TEST_F(MemoryTest, FolderServicesReportAndLeaveNoSearchOpen) {
  const qz::string path = folder.Path("some longer file name.wav");
  const qz::string deep = folder.Path("a folder of a longer name\\and one inside of it");
  folder.Put("some longer file name.wav", "x");
  DIOFile::DIOFileInfo info;
  FailEach([&] { return DIOFile::FindFirst(path, info); },
           [&](bool found) {
             EXPECT_EQ(info.privateData != nullptr, found);
             EXPECT_TRUE(!found || DIOFile::FindClose(info));
           });
  FailEach([&] { return DIOFile::CreatePath(deep, false); },
           [&](bool made) { EXPECT_TRUE(!made || DIOFile::Delete(deep)); });
  qz::string left = path;  // with room for what is assigned below
  qz::string result;
  FailEach([&] { return DIOFile::ChopExtension(left = path, result); },
           [&](bool chopped) { EXPECT_EQ(result == "wav", chopped); });
  FailEach(
      [&] {
        DIOFile::SplitName(path, left, result);
        return !result.empty();
      },
      [&](bool) { EXPECT_EQ(left.empty(), result.empty()); });
}

}  // namespace
