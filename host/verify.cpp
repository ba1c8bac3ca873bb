#include "host/verify.h"

#include "host/failure.h"

namespace samplehost {

int Verify(const Context&, const VerifyOptions&) {
  throw Failure("verify is not there yet.");
}

}  // namespace samplehost
