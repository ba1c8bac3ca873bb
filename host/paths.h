// Paths and file names. Users give and see native paths; the library and the disk layer take full
// paths of drive C: with backslashes. These functions are the way between the two, and what the
// host itself does with files.
//
// Text is narrow (UTF-8, any other bytes survive). Failures are thrown.
#ifndef HOST_PATHS_H_
#define HOST_PATHS_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "common/qzclasses.h"

namespace samplehost {

// The longest full path that the library's calls can carry, in bytes.
inline constexpr std::size_t kMaxPath = 259;

std::string Narrow(const qz::string& text);

// The full path of a native one, relative to the current folder. Failure where the notation cannot
// carry the name.
std::string FullPath(const std::string& native);

// As FullPath, with relative paths taken from the native folder `base`.
std::string FullPathFrom(const std::string& base, const std::string& native);

// The native path of a full one. A name that exists in another case is given as it exists.
std::string NativePath(const std::string& path);

// The folder of a full path with its trailing backslash, its last component, that component
// without its extension, and the extension without its dot (empty without a dot).
std::string FolderOf(const std::string& path);
std::string NameOf(const std::string& path);
std::string StemOf(const std::string& path);
std::string ExtensionOf(const std::string& path);

// The name of the encoded file beside a raw file.
std::string EncodedPathOf(const std::string& rawPath);

// The full, clean path of a name that is stored relative to `folder`.
std::string Expand(const std::string& folder, const qz::string& stored);

// Equal but for the case of ASCII letters.
bool SameText(const std::string& a, const std::string& b);
std::string LowerCase(const std::string& text);

// Why `name` cannot be a file name in the library's notation; empty where it can.
std::string WhyNoFileName(const std::string& name);

// Bytes of the file at a full path; nothing where it is no regular file.
std::optional<std::uint64_t> FileSize(const std::string& path);

// A file that is made under a temporary name in its own folder and appears under its real name
// only when it is whole. What was not committed is deleted.
class PendingFile {
 public:
  // `target` is a full path. Without `overwrite`, Failure where it exists.
  PendingFile(const std::string& target, bool overwrite);
  ~PendingFile();
  PendingFile(const PendingFile&) = delete;
  PendingFile& operator=(const PendingFile&) = delete;

  const std::string& path() const { return temporary_; }          // full path to write to
  const std::string& native() const { return nativeTemporary_; }  // the same file
  // Moves the file to its name; without `overwrite` never onto a file that came up meanwhile.
  void Commit();

 private:
  std::string temporary_;
  std::string nativeTemporary_;
  std::string nativeTarget_;
  bool overwrite_;
  bool committed_ = false;
};

// Writes `bytes` to a PendingFile's native path. Failure with the system's reason.
void WriteWhole(const std::string& native, const void* bytes, std::size_t size);

// Moves a file to a name that must not exist. Failure otherwise.
void MoveNew(const std::string& nativeFrom, const std::string& nativeTo);

}  // namespace samplehost

#endif  // HOST_PATHS_H_
