// What only the stand-in has: drives, and the way between native paths and our notation.
//
// samplehost and the tests use this; the library never does.
#ifndef PLATFORM_NATIVE_H_
#define PLATFORM_NATIVE_H_

#include <string>

namespace platform {

// Mounts `folder` (native, absolute) as drive `letter`, or unmounts it where `folder` is empty.
// "C:" is "/" from the start and may be mounted elsewhere. Not thread safe.
void MountDrive(char letter, const std::string& folder);

// The full path in our notation of a native path, relative ones taken from the current directory:
// "/home/a/b.wav" gives "C:\home\a\b.wav"; of several drives that hold it, the deepest is taken.
// "." and ".." are resolved as text. False, with the reason as a sentence in `why`, for names that
// the calls refuse (a backslash, a colon, one of * ? " < > |, a control character, a trailing dot
// or blank in a component), for paths on no drive and for paths of 260 bytes or more.
bool FromNative(const std::string& native, std::string& path, std::string& why);

// The native path that the layer uses for `path`, each component found without case as the calls
// find it; components that do not exist are taken as they stand. False where the drive is not
// mounted or the system does not tell.
bool ToNative(const std::string& path, std::string& native);

}  // namespace platform

#endif  // PLATFORM_NATIVE_H_
