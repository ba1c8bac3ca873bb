// Load and unload hooks of a loadable module: what the system's loader does for a DLL.
#include "platform/platform.h"

namespace {

__attribute__((constructor)) void OnLoad() {
  DllMain(&platform::thisModule, DLL_PROCESS_ATTACH, nullptr);
}

__attribute__((destructor)) void OnUnload() {
  DllMain(&platform::thisModule, DLL_PROCESS_DETACH, nullptr);
}

}  // namespace
