// The string resources of the module where the system has none of its own.
#include <iterator>

#include "platform/platform.h"

namespace {

constexpr platform::StringResource kStrings[] = {
#define SD_STRING(id, text) {id, text},
#include "sampledata/sd_strings.inc"
#undef SD_STRING
};

}  // namespace

namespace platform {
const HINSTANCE__ thisModule = {kStrings, std::size(kStrings)};
}
