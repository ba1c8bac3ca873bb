// The platform layer on Windows: the system's own headers.
#ifndef PLATFORM_PLATFORM_WINDOWS_H_
#define PLATFORM_PLATFORM_WINDOWS_H_

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include <rpc.h>
#include <rpcdce.h>
#include <shlwapi.h>
#include <stdlib.h>

// In front of a declaration: the symbol leaves the module that defines it.
#define PLATFORM_EXPORT __declspec(dllexport)

#endif  // PLATFORM_PLATFORM_WINDOWS_H_
