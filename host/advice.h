// What a user can do about a failure of a sample node.
#ifndef HOST_ADVICE_H_
#define HOST_ADVICE_H_

#include <string>

#include "PublicIncludes/kelvo_tarvanesampledata.h"

namespace samplehost {

// A sentence, or nothing where the failure's own text says it all.
std::string AdviceFor(SDAccessInterface::SDError error);

}  // namespace samplehost

#endif  // HOST_ADVICE_H_
