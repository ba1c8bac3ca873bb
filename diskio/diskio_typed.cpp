#include "diskio/diskio_typed.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <string>

#include "common/byte_order.h"

namespace {

using qz::uint64;
using qz::ulong;

// Unit of conversion and copying. A multiple of every element size.
constexpr ulong kBlockSize = 65536;

// Largest part of an array that one platform call moves where nothing has to be converted: the
// calls count in 32 bits. A multiple of every element size.
constexpr ulong kLargestTransfer = 0x80000000u;

// What a formatted text may take beyond the length of its format, terminator included.
constexpr std::size_t kFormatMargin = 131072;

// Formatted texts up to this size need no memory from the heap.
constexpr std::size_t kShortText = 1024;

using Block = std::unique_ptr<char[]>;

// Null where the memory is not to be had.
Block Allocate(std::size_t size) {
  return Block(new (std::nothrow) char[size]);
}

// False where the memory for the wide text is not to be had, or where the text is longer than the
// conversion can count.
bool AssignNarrow(qz::string& to, const std::string& narrow) {
  if (narrow.size() >= static_cast<std::size_t>(std::numeric_limits<int>::max())) return false;
  try {
    to = narrow.c_str();
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

// Copies a text with a carriage return in front of each of its line feeds.
void CopyWithCarriageReturns(char* to, const char* from, std::size_t length) {
  for (const char* const end = from + length; from != end; ++from) {
    if (*from == '\n') *to++ = '\r';
    *to++ = *from;
  }
}

}  // namespace

void DIOTypedStream::SetEndian(DIOEndianType endian) {
  state.endian = endian;
}

DIOFile::DIOOpenMode DIOTypedStream::GetAccessMode() {
  return state.accessMode;
}

bool DIOTypedStream::SetPosition(int64 distance, DIOSeekMode mode) {
  return SetPosition(static_cast<uint64>(distance), mode);
}

bool DIOTypedStream::SetPosition(slong distance, DIOSeekMode mode) {
  return SetPosition(static_cast<ulong>(distance), mode);
}

// --- Numbers -----------------------------------------------------------------------------------

bool DIOTypedStream::SameOrder() const {
  return (state.endian == ENDIAN_LITTLE) == (std::endian::native == std::endian::little);
}

bool DIOTypedStream::ReadAll(void* buffer, ulong count) {
  ulong done = 0;
  return ReadBytes(buffer, count, done) && done == count;
}

bool DIOTypedStream::WriteAll(const void* buffer, ulong count) {
  ulong done = 0;
  return WriteBytes(buffer, count, done) && done == count;
}

// The caller's variable takes the bytes directly, so after a short read it holds those that were
// there, unswapped.
template <typename T>
bool DIOTypedStream::ReadNumber(T& value) {
  if (!ReadAll(&value, sizeof(T))) return false;
  if (!SameOrder()) value = qz::Swapped(value);
  return true;
}

template <typename T>
bool DIOTypedStream::WriteNumber(T value) {
  if (!SameOrder()) value = qz::Swapped(value);
  return WriteAll(&value, sizeof(T));
}

bool DIOTypedStream::Read(char& value) {
  return ReadAll(&value, 1);
}
bool DIOTypedStream::Read(uchar& value) {
  return ReadAll(&value, 1);
}
bool DIOTypedStream::Read(short& value) {
  return ReadNumber(reinterpret_cast<ushort&>(value));
}
bool DIOTypedStream::Read(ushort& value) {
  return ReadNumber(value);
}
bool DIOTypedStream::Read(slong& value) {
  return ReadNumber(reinterpret_cast<ulong&>(value));
}
bool DIOTypedStream::Read(ulong& value) {
  return ReadNumber(value);
}
bool DIOTypedStream::Read(int64& value) {
  return ReadNumber(reinterpret_cast<uint64&>(value));
}
bool DIOTypedStream::Read(uint64& value) {
  return ReadNumber(value);
}

bool DIOTypedStream::Read(float& value) {
  ulong bits = 0;
  if (!ReadNumber(bits)) return false;
  value = std::bit_cast<float>(bits);
  return true;
}

bool DIOTypedStream::Read(double& value) {
  uint64 bits = 0;
  if (!ReadNumber(bits)) return false;
  value = std::bit_cast<double>(bits);
  return true;
}

bool DIOTypedStream::Read(v32& value) {
  return Read(value.x) && Read(value.y) && Read(value.z);
}

bool DIOTypedStream::Write(char value) {
  return WriteAll(&value, 1);
}
bool DIOTypedStream::Write(uchar value) {
  return WriteAll(&value, 1);
}
bool DIOTypedStream::Write(short value) {
  return WriteNumber(static_cast<ushort>(value));
}
bool DIOTypedStream::Write(ushort value) {
  return WriteNumber(value);
}
bool DIOTypedStream::Write(slong value) {
  return WriteNumber(static_cast<ulong>(value));
}
bool DIOTypedStream::Write(ulong value) {
  return WriteNumber(value);
}
bool DIOTypedStream::Write(int64 value) {
  return WriteNumber(static_cast<uint64>(value));
}
bool DIOTypedStream::Write(uint64 value) {
  return WriteNumber(value);
}
bool DIOTypedStream::Write(float value) {
  return WriteNumber(std::bit_cast<ulong>(value));
}
bool DIOTypedStream::Write(double value) {
  return WriteNumber(std::bit_cast<uint64>(value));
}

bool DIOTypedStream::Write(const v32& value) {
  return Write(value.x) && Write(value.y) && Write(value.z);
}

// --- Arrays ------------------------------------------------------------------------------------
//
// An array moves in blocks, with the outcome of a loop over its elements. So a block that comes
// out short is a failure only where it cuts an element or moves nothing: the loop would have gone
// on behind a whole element.

template <typename T>
bool DIOTypedStream::ReadArray(unsigned char* bytes, uint64 size) {
  const bool swap = !SameOrder();
  while (size > 0) {
    const ulong count =
        static_cast<ulong>(std::min<uint64>(size, swap ? kBlockSize : kLargestTransfer));
    ulong done = 0;
    const bool fine = ReadBytes(bytes, count, done);
    if (swap) qz::SwapAll<T>(bytes, done);
    if (!fine || done == 0 || done % sizeof(T) != 0) return false;
    bytes += done;
    size -= done;
  }
  return true;
}

template <typename T>
bool DIOTypedStream::WriteArray(const unsigned char* bytes, uint64 size) {
  const bool swap = !SameOrder();
  unsigned char swapped[kBlockSize];
  while (size > 0) {
    const ulong count =
        static_cast<ulong>(std::min<uint64>(size, swap ? kBlockSize : kLargestTransfer));
    if (swap) {
      std::memcpy(swapped, bytes, count);
      qz::SwapAll<T>(swapped, count);
    }
    ulong done = 0;
    const bool fine = WriteBytes(swap ? swapped : bytes, count, done);
    if (!fine || done == 0 || done % sizeof(T) != 0) return false;
    bytes += done;
    size -= done;
  }
  return true;
}

bool DIOTypedStream::Read(void* buffer, ulong elemSize, ulong numElem) {
  unsigned char* const bytes = static_cast<unsigned char*>(buffer);
  const uint64 size = uint64{elemSize} * numElem;
  switch (elemSize) {
    case 1:
      return ReadAll(buffer, numElem);
    case 2:
      return ReadArray<ushort>(bytes, size);
    case 4:
      return ReadArray<ulong>(bytes, size);
    case 8:
      return ReadArray<uint64>(bytes, size);
    default:
      return false;
  }
}

bool DIOTypedStream::Write(const void* buffer, ulong elemSize, ulong numElem) {
  const unsigned char* const bytes = static_cast<const unsigned char*>(buffer);
  const uint64 size = uint64{elemSize} * numElem;
  switch (elemSize) {
    case 1:
      return WriteAll(buffer, numElem);
    case 2:
      return WriteArray<ushort>(bytes, size);
    case 4:
      return WriteArray<ulong>(bytes, size);
    case 8:
      return WriteArray<uint64>(bytes, size);
    default:
      return false;
  }
}

// --- Texts -------------------------------------------------------------------------------------

// The bytes are converted as a whole: a character of the code page may have several.
bool DIOTypedStream::ReadString(qz::string& str) {
  str.clear();
  std::string narrow;
  char next = 0;
  while (ReadAll(&next, 1)) {
    if (next == '\0') return AssignNarrow(str, narrow);
    try {
      narrow.push_back(next);
    } catch (const std::bad_alloc&) {
      break;
    }
  }
  AssignNarrow(str, narrow);
  return false;
}

// Line ends are made in the narrow form, which is what reaches the file: no character of the code
// page has a line feed as a part.
bool DIOTypedStream::WriteFormatted(const qz::string& format, bool withTerminator,
                                    std::va_list arguments) {
  const char* const narrowFormat = format.c_str();
  // The narrow form could not be made, and the assertion's handler returned.
  if (narrowFormat[0] == '\0' && !format.empty() && format.front() != u'\0') return false;
  char shortText[kShortText];
  const char* text = shortText;
  Block longText;

  std::va_list again;
  va_copy(again, arguments);
  const int formatted = std::vsnprintf(shortText, sizeof(shortText), narrowFormat, arguments);
  const auto textLength = static_cast<std::size_t>(formatted);
  bool fits = formatted >= 0 && textLength < format.size() + kFormatMargin;
  if (fits && textLength >= sizeof(shortText)) {
    longText = Allocate(textLength + 1);
    text = longText.get();
    fits =
        text != nullptr && std::vsnprintf(longText.get(), textLength + 1, narrowFormat, again) >= 0;
  }
  va_end(again);
  if (!fits) return false;

  // A zero character that an argument brought in ends the text.
  const std::size_t length = std::strlen(text);
  const std::size_t lineFeeds = static_cast<std::size_t>(std::count(text, text + length, '\n'));
  const std::size_t total = length + lineFeeds;
  Block withReturns;
  if (lineFeeds > 0) {
    withReturns = Allocate(total + 1);
    if (withReturns == nullptr) return false;
    CopyWithCarriageReturns(withReturns.get(), text, length + 1);
    text = withReturns.get();
  }
  return WriteAll(text, static_cast<ulong>(total + (withTerminator ? 1 : 0)));
}

// The contract fixes the format as a reference, and no promise stands for a va_start behind one.
// Both compilers pass the reference as a pointer in the place of a last named parameter and do
// what is meant; the tests of the string writers watch over it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wvarargs"

bool DIOTypedStream::WriteString(const qz::string& string, ...) {
  std::va_list arguments;
  va_start(arguments, string);
  const bool written = WriteFormatted(string, false, arguments);
  va_end(arguments);
  return written;
}

bool DIOTypedStream::WriteStringZ(const qz::string& string, ...) {
  std::va_list arguments;
  va_start(arguments, string);
  const bool written = WriteFormatted(string, true, arguments);
  va_end(arguments);
  return written;
}

#pragma GCC diagnostic pop

// --- Copying -----------------------------------------------------------------------------------

bool DIOTypedStream::Insert(DIOFile* source) {
  uint64 size = 0;
  uint64 position = 0;
  if (!source->GetFileSize(size) || !source->GetPosition(position) || position == size) {
    return false;
  }
  return Insert(source, size - position);
}

bool DIOTypedStream::Insert(DIOFile* source, uint64 length) {
  const Block buffer = Allocate(kBlockSize);
  if (buffer == nullptr) return false;
  for (; length > kBlockSize; length -= kBlockSize) {
    if (!source->Read(buffer.get(), 1, kBlockSize) || !Write(buffer.get(), 1, kBlockSize)) {
      return false;
    }
  }
  const ulong rest = static_cast<ulong>(length);
  return source->Read(buffer.get(), 1, rest) && Write(buffer.get(), 1, rest);
}

// --- Labels ------------------------------------------------------------------------------------

void DIOTypedStream::SetLabelMode(DIOLabelMode mode) {
  state.labelMode = mode;
}

bool DIOTypedStream::SetLabel(const qz::string& name) {
  uint64 position = 0;
  if (!GetPosition(position)) return false;
  try {
    state.labelList.add(name, position);
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

qz::uint64 DIOTypedStream::GetLabel(const qz::string& name) const {
  return state.labelList.get(name);
}

bool DIOTypedStream::WriteLabel(const qz::string& name) {
  uint64 value = state.labelList.get(name);
  if (value == DIOLabelList::kUnknown) {
    // A reference whose place is not known cannot be filled later; its field is written all the
    // same.
    uint64 position = 0;
    if (GetPosition(position)) {
      try {
        state.openLabelRefList.add(name, position);
      } catch (const std::bad_alloc&) {
        return false;
      }
    }
    value = 0;
  }
  return state.labelMode == LABELMODE_SHORT ? Write(static_cast<ulong>(value)) : Write(value);
}

bool DIOTypedStream::ResolveLabels() {
  if (state.openLabelRefList.empty()) return true;
  ulong position = 0;
  GetPosition(position);
  bool written = true;
  for (const DIOLabel& reference : state.openLabelRefList) {
    SetPosition(reference.offset, SEEKMODE_START);
    written = WriteLabel(reference.name);
    if (!written) break;
  }
  SetPosition(position, SEEKMODE_START);
  return written;
}
