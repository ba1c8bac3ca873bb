// What the host finds out about an encoded file (docs/formats/esmp.md) by itself: whether it is
// whole, and what its head says.
#ifndef HOST_ENCODED_CHECK_H_
#define HOST_ENCODED_CHECK_H_

#include <cstdint>
#include <string>

#include "host/stored_node.h"

namespace samplehost {

struct EncodedHead {
  std::uint32_t numChannels = 0;
  std::uint32_t compType = 0;
  StoredNumbers numbers;
};

// Reads the file at a native path: its lengths, the header of each frame, and a decoding of all
// frames against the decoder states that the file holds. Gives what is wrong, or nothing; `head` is
// filled as far as the head can be read.
std::string CheckEncodedFile(const std::string& native, EncodedHead& head);

}  // namespace samplehost

#endif  // HOST_ENCODED_CHECK_H_
