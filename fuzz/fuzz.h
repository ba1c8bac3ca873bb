// What the fuzz targets share: the input with the choices that it makes, failing allocations, and a
// file in memory.
//
// A target is one function, LLVMFuzzerTestOneInput, in a file of its own. The fuzz preset links it
// with libFuzzer, every other build with replay.cpp, which runs it over files. A finding is
// whatever ends the process: a sanitizer's report, or a Check that does not hold.
#ifndef FUZZ_FUZZ_H_
#define FUZZ_FUZZ_H_

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "tests/heap_faults.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace fuzz {

// Ends the process with the text where `holds` is false.
void Check(bool holds, const char* text);

// Reads the first and the last byte of a block.
void Touch(const void* block, std::size_t size);

// The bytes of one run. Choices are taken from the end, so that the front of an input is a plain
// file and dictionaries fit it.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size)
      : bytes_(reinterpret_cast<const char*>(data), size) {}

  // 0 where nothing is left.
  std::uint8_t TakeByte();
  // The next bytes from the front up to and without the first zero byte, or all.
  std::string_view TakeText();
  // What is left.
  std::string_view Bytes() const { return bytes_; }

 private:
  std::string_view bytes_;
};

// While it lives, a byte of the input says which allocation of our code fails: none for 0, else one
// of the first 500, which is followed by all others where the byte's highest bit is set. Under a
// sanitizer, which pays for every byte of a block, blocks of more than 100 KiB are refused as well:
// they are claims of a size in a file.
class Faults {
 public:
  explicit Faults(std::uint8_t choice);

  // Whether an allocation has failed or been refused since the last object was made: results then
  // tell little.
  static bool Fired();

 private:
  heap_faults::Failing failing_;
  heap_faults::Limit limit_;
};

// `bytes` as a file that is open for reading; they must outlive it. Positions behind the end are
// legal, as in files on disk.
class MemoryFile {
 public:
  explicit MemoryFile(std::string_view bytes);
  ~MemoryFile() { std::fclose(file_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  std::FILE* Get() const { return file_; }

 private:
  struct Cookie;
  std::string_view bytes_;
  std::int64_t position_ = 0;
  std::FILE* file_;
  char buffer_[1024];
};

}  // namespace fuzz

#endif  // FUZZ_FUZZ_H_
