// Assertions: stops for broken caller contracts, live in every build type. They are no error
// handling; nothing that a user or a file can do reaches one.
#ifndef COMMON_QZASSERT_H_
#define COMMON_QZASSERT_H_

namespace qz {

// Receives the text of a failed assertion with its place. Where it returns, the operation goes on
// with an empty result; only tests do that.
using AssertHandler = void (*)(const char* text, const char* file, int line);

// Replaces the handler and gives the former one; null restores the default, which writes the text,
// file and line to standard error and aborts. One handler for the process; not thread safe.
AssertHandler SetAssertHandler(AssertHandler handler);

void AssertFailed(const char* text, const char* file, int line);

inline void Assert(bool holds, const char* text, const char* file, int line) {
  if (!holds) AssertFailed(text, file, line);
}

}  // namespace qz

// `text` names what had to hold, as the message shows it.
#define QZ_ASSERT(condition, text) ::qz::Assert(condition, text, __FILE__, __LINE__)

#endif  // COMMON_QZASSERT_H_
