// qz::string, the one text type: names, paths, messages, quality classes; and qz::strtable, texts
// by number.
#ifndef COMMON_QZCLASSES_H_
#define COMMON_QZCLASSES_H_

#include <string>

#include "common/qztypes.h"
#include "platform/platform.h"

namespace qz {

// Wide text (16-bit code units) with a narrow form on demand in the platform's ANSI code page.
// The wide text is the truth, and every operation of the base stays available.
//
// Not shareable between threads, even for reading: c_str writes a cache.
class string : public std::u16string {
 public:
  string() = default;
  // Narrow text, zero-terminated. `s` must not be null.
  string(const char* s);  // NOLINT: conversions are part of the interface
  // The text of one character; a zero character gives the empty text.
  string(char c);  // NOLINT
  // A copy never takes the other's narrow cache.
  string(const string& other);
  string(string&& other) noexcept;     // neither does a move
  string(const std::u16string& wide);  // NOLINT
  ~string();

  string& operator=(const string& other);
  string& operator=(string&& other) noexcept;
  string& operator=(const char* s);
  string& operator+=(const string& other);
  string& operator+=(const char* s);

  string operator+(const string& right) const;
  string operator+(const char* right) const;

  bool operator==(const char* s) const;

  // Positions count 16-bit code units; npos when nothing matches. In `find` a text is searched for
  // as a whole, in the other two it is a set of characters.
  using std::u16string::find;
  using std::u16string::find_first_of;
  using std::u16string::find_last_of;
  size_type find(char c, size_type pos = 0) const;
  size_type find(const char* s, size_type pos = 0) const;
  size_type find_first_of(char c, size_type pos = 0) const;
  size_type find_first_of(const char* s, size_type pos = 0) const;
  size_type find_last_of(char c, size_type pos = npos) const;
  size_type find_last_of(const char* s, size_type pos = npos) const;

  // The wide text, zero-terminated, valid until the next change.
  const char16_t* w_str() const { return std::u16string::c_str(); }

  // The narrow text, converted anew at each call. Valid until the string goes or until a later
  // c_str on it finds another length; two calls share one buffer. Stops by assertion where the
  // conversion or the buffer fails (never for text that the code page can carry); where the
  // assertion handler returns, the result is an empty text.
  const char* c_str() const;

 private:
  friend struct StringTestAccess;

  mutable char* cBuffer = nullptr;  // what the last c_str made; owned
  mutable ulong cLength = 0;        // its size in bytes with terminator; 0 while it is null
};

string operator+(const char* left, const string& right);

// The string resources of a module.
class strtable {
 public:
  strtable() = default;
  explicit strtable(HINSTANCE _hModule) { Init(_hModule); }
  void Init(HINSTANCE _hModule) { hModule = _hModule; }

  // The text `resID`, at most 4095 narrow characters; empty for a number that has no text.
  string operator[](ulong resID) const;

 private:
  HINSTANCE hModule = nullptr;
};

}  // namespace qz

#endif  // COMMON_QZCLASSES_H_
