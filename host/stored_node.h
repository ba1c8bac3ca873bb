// What the payloads of a database say, read without the library and without touching a file.
#ifndef HOST_STORED_NODE_H_
#define HOST_STORED_NODE_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/database.h"

namespace samplehost {

struct StoredNumbers {
  std::uint32_t rate = 0;
  std::uint64_t length = 0;
  std::uint64_t loop = 0;
  std::uint64_t loopLength = 0;

  bool operator==(const StoredNumbers&) const = default;
};

struct StoredSample {
  std::string qualityClass;
  std::string fileName;  // relative to the database's folder
  std::uint32_t compType = 0;
  std::uint32_t numChannels = 0;
  StoredNumbers raw;
  StoredNumbers encoded;
};

// The samples of a sample node's payload; nothing where it cannot be read whole.
std::optional<std::vector<StoredSample>> ReadStoredSamples(const MemoryStream::Bytes& payload);

// The sample folder of a setup node's payload.
std::optional<std::string> ReadStoredFolder(const MemoryStream::Bytes& payload);

// Is this the text of a UUID, as the library names its folders?
bool IsUuid(const std::string& name);

}  // namespace samplehost

#endif  // HOST_STORED_NODE_H_
