// What the host wants of a sound file before it hands the file to the library, which takes a file's
// header at its word: that the file can be read, and holds the samples that its header promises.
#ifndef HOST_SOUND_CHECK_H_
#define HOST_SOUND_CHECK_H_

#include <optional>
#include <string>

#include "audio/audio.h"
#include "host/sound_layout.h"

namespace samplehost {

// Why a file cannot come in, and what the user can do about it.
struct Refusal {
  std::string reason;
  std::string advice;
};

// Looks at the sound file at a full path, by its content and the name that its copy would get;
// nothing where it may come in.
std::optional<Refusal> CheckSoundFile(const std::string& path);

// The same by its content alone, whose layout is given. `numbers`, where it isn't null, gets the
// sound's record without samples, as far as the file could be read.
std::optional<Refusal> CheckSound(const std::string& path, const SoundLayout& layout,
                                  _AUDIO* numbers);

// Do names with this extension (without its dot) stand for sound files that the library reads?
bool IsSoundExtension(const std::string& extension);

}  // namespace samplehost

#endif  // HOST_SOUND_CHECK_H_
