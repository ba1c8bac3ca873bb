// Narrow and wide text, string resources, UUIDs.
#include <uuid/uuid.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwctype>

#include "platform/posix_intern.h"

#include <locale.h>

namespace platform::posix {

namespace {

constexpr char32_t kEscapeBase = 0xDC00;

bool IsHighSurrogate(char32_t c) {
  return c >= 0xD800 && c < 0xDC00;
}
bool IsLowSurrogate(char32_t c) {
  return c >= 0xDC00 && c < 0xE000;
}
bool IsEscape(char32_t c) {
  return c >= kEscapeBase + 0x80 && c <= kEscapeBase + 0xFF;
}

// A locale of our own, as the program's may be "C", which folds nothing but ASCII. It goes with the
// module that holds it: a library is loaded and unloaded.
class Folding {
 public:
  Folding() : locale_(newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr)) {
    if (locale_ == nullptr) locale_ = newlocale(LC_CTYPE_MASK, "en_US.UTF-8", nullptr);
  }
  ~Folding() {
    if (locale_ != nullptr) freelocale(locale_);
  }
  Folding(const Folding&) = delete;
  Folding& operator=(const Folding&) = delete;
  locale_t get() const { return locale_; }

 private:
  locale_t locale_;
};

locale_t FoldingLocale() {
  static const Folding folding;
  return folding.get();
}

// Takes units or bytes while they fit, and counts them all.
template <typename Unit>
struct Sink {
  Unit* buffer;
  std::size_t size;
  std::size_t count = 0;

  void Put(char32_t unit) {
    if (count < size) buffer[count] = static_cast<Unit>(unit);
    ++count;
  }

  // What the conversion answers: the count, or 0 where the buffer is too small for it.
  int Answer() const {
    if (size != 0 && count > size) {
      SetLastError(ERROR_INSUFFICIENT_BUFFER);
      return 0;
    }
    return static_cast<int>(count);
  }
};

void PutUtf8(Sink<char>& sink, char32_t c) {
  if (c < 0x80) {
    sink.Put(c);
  } else if (c < 0x800) {
    sink.Put(0xC0 | (c >> 6));
    sink.Put(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    sink.Put(0xE0 | (c >> 12));
    sink.Put(0x80 | ((c >> 6) & 0x3F));
    sink.Put(0x80 | (c & 0x3F));
  } else {
    sink.Put(0xF0 | (c >> 18));
    sink.Put(0x80 | ((c >> 12) & 0x3F));
    sink.Put(0x80 | ((c >> 6) & 0x3F));
    sink.Put(0x80 | (c & 0x3F));
  }
}

}  // namespace

char32_t NextCharacter(const char*& at, const char* end) {
  const auto lead = static_cast<unsigned char>(*at);
  if (lead < 0x80) {
    ++at;
    return lead;
  }
  int more = 0;
  char32_t least = 0;
  if (lead >= 0xC2 && lead <= 0xDF) {
    more = 1;
    least = 0x80;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    more = 2;
    least = 0x800;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    more = 3;
    least = 0x10000;
  }
  char32_t value = lead & (0x3Fu >> more);
  bool good = more != 0 && end - at > more;
  for (int i = 1; good && i <= more; ++i) {
    const auto byte = static_cast<unsigned char>(at[i]);
    good = (byte & 0xC0) == 0x80;
    value = (value << 6) | (byte & 0x3Fu);
  }
  if (!good || value < least || value > 0x10FFFF || (value >= 0xD800 && value < 0xE000)) {
    ++at;
    return kEscapeBase + lead;
  }
  at += more + 1;
  return value;
}

char32_t FoldCase(char32_t c) {
  if (c < 0x80) return c >= U'a' && c <= U'z' ? c - 0x20 : c;
  const locale_t locale = FoldingLocale();
  if (locale == nullptr) return c;
  return static_cast<char32_t>(towupper_l(static_cast<wint_t>(c), locale));
}

std::u32string FoldName(std::string_view name) {
  std::u32string folded;
  folded.reserve(name.size());
  const char* at = name.data();
  const char* end = at + name.size();
  while (at != end)
    folded.push_back(FoldCase(NextCharacter(at, end)));
  return folded;
}

bool EqualNames(std::string_view a, std::string_view b) {
  const char* atA = a.data();
  const char* atB = b.data();
  const char* endA = atA + a.size();
  const char* endB = atB + b.size();
  while (atA != endA && atB != endB) {
    if (FoldCase(NextCharacter(atA, endA)) != FoldCase(NextCharacter(atB, endB))) return false;
  }
  return atA == endA && atB == endB;
}

}  // namespace platform::posix

using platform::posix::NextCharacter;
using platform::posix::Sink;

int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int length, LPWSTR buffer,
                        int size) {
  if (codePage != CP_ACP || flags != 0 || text == nullptr || length == 0 || length < -1 ||
      size < 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  const char* end =
      text + (length == -1 ? std::strlen(text) + 1 : static_cast<std::size_t>(length));
  Sink<WCHAR> sink{buffer, static_cast<std::size_t>(size)};
  while (text != end) {
    const char32_t c = NextCharacter(text, end);
    if (c < 0x10000) {
      sink.Put(c);
    } else {
      sink.Put(0xD800 + ((c - 0x10000) >> 10));
      sink.Put(0xDC00 + ((c - 0x10000) & 0x3FF));
    }
  }
  return sink.Answer();
}

int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR text, int length, LPSTR buffer,
                        int size, LPCSTR /*defaultChar*/, LPBOOL usedDefaultChar) {
  namespace posix = platform::posix;
  if (codePage != CP_ACP || flags != 0 || text == nullptr || length == 0 || length < -1 ||
      size < 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  std::size_t count = static_cast<std::size_t>(length);
  if (length == -1) {
    for (count = 0; text[count] != 0;)
      ++count;
    ++count;
  }
  bool replaced = false;
  Sink<char> sink{buffer, static_cast<std::size_t>(size)};
  for (std::size_t i = 0; i < count; ++i) {
    const char32_t unit = text[i];
    if (posix::IsHighSurrogate(unit) && i + 1 < count && posix::IsLowSurrogate(text[i + 1])) {
      ++i;
      posix::PutUtf8(sink, 0x10000 + ((unit - 0xD800) << 10) + (text[i] - 0xDC00u));
    } else if (posix::IsEscape(unit)) {
      sink.Put(unit - posix::kEscapeBase);
    } else if (posix::IsHighSurrogate(unit) || posix::IsLowSurrogate(unit)) {
      // Half a character, which no narrow text can have given: the replacement character.
      posix::PutUtf8(sink, 0xFFFD);
      replaced = true;
    } else {
      posix::PutUtf8(sink, unit);
    }
  }
  if (usedDefaultChar != nullptr) *usedDefaultChar = replaced ? TRUE : FALSE;
  return sink.Answer();
}

int LoadStringA(HINSTANCE module, UINT id, LPSTR buffer, int size) {
  if (module == nullptr || buffer == nullptr || size <= 0) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  for (std::size_t i = 0; i < module->numStrings; ++i) {
    if (module->strings[i].id != id) continue;
    const std::string_view text = module->strings[i].text;
    const std::size_t length = text.copy(buffer, static_cast<std::size_t>(size) - 1);
    buffer[length] = 0;
    return static_cast<int>(length);
  }
  buffer[0] = 0;
  SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
  return 0;
}

RPC_STATUS UuidCreate(UUID* uuid) {
  uuid_t bytes;  // in network order
  uuid_generate_random(bytes);
  uuid->Data1 = std::uint32_t{bytes[0]} << 24 | std::uint32_t{bytes[1]} << 16 |
                std::uint32_t{bytes[2]} << 8 | bytes[3];
  uuid->Data2 = static_cast<std::uint16_t>(bytes[4] << 8 | bytes[5]);
  uuid->Data3 = static_cast<std::uint16_t>(bytes[6] << 8 | bytes[7]);
  std::memcpy(uuid->Data4, bytes + 8, 8);
  return RPC_S_OK;
}

RPC_STATUS UuidToStringA(const UUID* uuid, RPC_CSTR* text) {
  constexpr std::size_t kSize = 37;
  *text = static_cast<RPC_CSTR>(std::malloc(kSize));
  if (*text == nullptr) return RPC_S_OUT_OF_MEMORY;
  const std::uint8_t* d = uuid->Data4;
  std::snprintf(reinterpret_cast<char*>(*text), kSize,
                "%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x", unsigned{uuid->Data1},
                unsigned{uuid->Data2}, unsigned{uuid->Data3}, d[0], d[1], d[2], d[3], d[4], d[5],
                d[6], d[7]);
  return RPC_S_OK;
}

RPC_STATUS RpcStringFreeA(RPC_CSTR* text) {
  std::free(*text);
  *text = nullptr;
  return RPC_S_OK;
}

int UuidCompare(UUID* a, UUID* b, RPC_STATUS* status) {
  *status = RPC_S_OK;
  const auto order = [](auto x, auto y) { return x < y ? -1 : (x > y ? 1 : 0); };
  int result = order(a->Data1, b->Data1);
  if (result == 0) result = order(a->Data2, b->Data2);
  if (result == 0) result = order(a->Data3, b->Data3);
  if (result == 0) result = order(std::memcmp(a->Data4, b->Data4, sizeof a->Data4), 0);
  return result;
}
