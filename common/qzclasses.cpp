#include "common/qzclasses.h"

#include <cstddef>
#include <new>
#include <utility>

#include "common/qzassert.h"

namespace qz {
namespace {

// Narrow size of one text of the string resources, terminator included.
constexpr int kResourceBufferSize = 4096;

// The platform's wide character and ours are two types of one representation.
LPWSTR PlatformText(char16_t* text) {
  return reinterpret_cast<LPWSTR>(text);
}
LPCWSTR PlatformText(const char16_t* text) {
  return reinterpret_cast<LPCWSTR>(text);
}

}  // namespace

string::string(const char* s) {
  *this = s;
}

string::string(char c) {
  const char text[2] = {c, '\0'};
  *this = text;
}

string::string(const string& other) : std::u16string(other) {}

string::string(string&& other) noexcept : std::u16string(std::move(other)) {}

string::string(const std::u16string& wide) : std::u16string(wide) {}

string::~string() {
  delete[] cBuffer;
}

string& string::operator=(const string& other) {
  assign(other);
  return *this;
}

string& string::operator=(string&& other) noexcept {
  std::u16string::operator=(std::move(other));
  return *this;
}

string& string::operator=(const char* s) {
  const int len = MultiByteToWideChar(CP_ACP, 0, s, -1, nullptr, 0);
  QZ_ASSERT(len != 0, "len!=0");
  if (len <= 0) {
    clear();
    return *this;
  }
  // The conversion writes its terminator onto the one that the base keeps behind its text. `s` may
  // be our own narrow cache: nothing here touches that.
  resize(static_cast<size_type>(len) - 1);
  const int converted = MultiByteToWideChar(CP_ACP, 0, s, -1, PlatformText(data()), len);
  QZ_ASSERT(converted == len, "len!=0");
  if (converted != len) clear();
  return *this;
}

string& string::operator+=(const string& other) {
  append(other);
  return *this;
}

string& string::operator+=(const char* s) {
  return *this += string(s);
}

string string::operator+(const string& right) const {
  string result;
  result.reserve(size() + right.size());
  result.append(*this).append(right);
  return result;
}

string string::operator+(const char* right) const {
  return *this + string(right);
}

string operator+(const char* left, const string& right) {
  return string(left) + right;
}

bool string::operator==(const char* s) const {
  return compare(string(s)) == 0;
}

string::size_type string::find(char c, size_type pos) const {
  return std::u16string::find(string(c), pos);
}

string::size_type string::find(const char* s, size_type pos) const {
  return std::u16string::find(string(s), pos);
}

string::size_type string::find_first_of(char c, size_type pos) const {
  return std::u16string::find_first_of(string(c), pos);
}

string::size_type string::find_first_of(const char* s, size_type pos) const {
  return std::u16string::find_first_of(string(s), pos);
}

string::size_type string::find_last_of(char c, size_type pos) const {
  return std::u16string::find_last_of(string(c), pos);
}

string::size_type string::find_last_of(const char* s, size_type pos) const {
  return std::u16string::find_last_of(string(s), pos);
}

const char* string::c_str() const {
  const LPCWSTR wide = PlatformText(w_str());
  const int len = WideCharToMultiByte(CP_ACP, 0, wide, -1, nullptr, 0, nullptr, nullptr);
  QZ_ASSERT(len != 0, "len!=0");
  if (len <= 0) return "";
  const ulong needed = static_cast<ulong>(len);
  if (cLength != needed) {
    delete[] cBuffer;
    cLength = 0;
    cBuffer = new (std::nothrow) char[needed];
    QZ_ASSERT(cBuffer != nullptr, "cBuffer!=NULL");
    if (cBuffer == nullptr) return "";
    cLength = needed;
  }
  const int converted = WideCharToMultiByte(CP_ACP, 0, wide, -1, cBuffer, len, nullptr, nullptr);
  QZ_ASSERT(converted == len, "len!=0");
  return converted == len ? cBuffer : "";
}

string strtable::operator[](ulong resID) const {
  char text[kResourceBufferSize];
  if (LoadStringA(hModule, resID, text, kResourceBufferSize) == 0) text[0] = '\0';
  return string(text);
}

}  // namespace qz
