// Conversion of a sound file into WAV or MORT, by the audio library's own readers and writers.
#ifndef HOST_CONVERT_H_
#define HOST_CONVERT_H_

#include <string>
#include <vector>

namespace samplehost {

struct ConvertOptions {
  std::string source;  // full paths
  std::string target;  // its extension says what it becomes: wav or mort
  std::string codec;   // of MORT: "gsm", "gb", or empty for gsm
  bool overwrite = false;
};

// Writes the target whole or not at all. The sound stays as it is but for what the codec does to
// it: samples, rate and key are those of the source, in WAV its loop too. The result is what the
// target cannot hold of the source, a sentence each. Failure where the source is refused, or the
// target cannot hold its sound.
std::vector<std::string> ConvertSound(const ConvertOptions& options);

}  // namespace samplehost

#endif  // HOST_CONVERT_H_
