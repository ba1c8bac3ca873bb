// Export of one sample to files: as WAV (raw or decoded), as the encoded bytes of a channel, or the
// decoder's extra data as JSON. Nothing is done to the sound; files appear whole or not at all.
#ifndef HOST_EXPORT_H_
#define HOST_EXPORT_H_

#include <optional>
#include <string>
#include <vector>

#include "host/sample_data.h"

namespace samplehost {

enum class ExportAs { kRaw, kDecoded, kEncoded, kExtra };

struct ExportOptions {
  ExportAs as = ExportAs::kRaw;
  std::string target;               // full path
  std::optional<unsigned> channel;  // encoded data of this channel alone
  bool overwrite = false;
};

// Writes the files and gives their native paths. Encoded data of several channels goes to a file
// each: ".chN" comes in front of the target's extension. Failure where something cannot be read or
// written, or exists; files that were finished by then stay.
std::vector<std::string> ExportSample(Session& session, Node& node, const std::string& qualityClass,
                                      const ExportOptions& options);

}  // namespace samplehost

#endif  // HOST_EXPORT_H_
