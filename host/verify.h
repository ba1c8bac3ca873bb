// Verify: are the files of the saved state whole? It reads the stored payloads by itself and loads
// no node, since loading makes missing encoded files anew.
#ifndef HOST_VERIFY_H_
#define HOST_VERIFY_H_

#include "host/verbs.h"

namespace samplehost {

struct VerifyOptions {
  bool repair = false;
  bool json = false;
};

// Exit code 0 where all is whole, with warnings or without: states that are legal but odd. With
// `repair` encoded files that are missing, damaged or odd are made anew by the library, if their
// raw file is whole; raw files are never touched.
int Verify(const Context& context, const VerifyOptions& options);

}  // namespace samplehost

#endif  // HOST_VERIFY_H_
