// The plug-in frame: what the host knows of the library before it has a database.
//
// Order of calls: RequestBaseInterface, SetManagerInterface, then version record and interface list
// in any order with GetFirstInterface ahead of GetNextInterface; CreateInterface and
// ReleaseInterface for each node; RequestRemoval before the library is unloaded. One thread at a
// time. Operations stand in slot order; records are fixed in layout.
#ifndef PUBLICINCLUDES_KELVO_PLUGIN_H_
#define PUBLICINCLUDES_KELVO_PLUGIN_H_

#include <cstring>

#include "common/qztypes.h"
#include "platform/platform.h"

// --- Identifiers ---

inline constexpr _GUID hdbTypeSampleData = {
    0x145AAC98, 0xA45A, 0x11D3, {0x87, 0x63, 0x00, 0x50, 0x04, 0x69, 0xA2, 0x67}};
inline constexpr _GUID hdbTypeSampleDataSetup = {
    0xD0551ED2, 0x1487, 0x11D4, {0xBA, 0x67, 0x00, 0x50, 0xDA, 0x72, 0xA9, 0x82}};
inline constexpr _GUID dbSubTypeTarvane = {
    0x600B51BC, 0x928A, 0x4AA1, {0x87, 0xBC, 0x8A, 0xD8, 0x70, 0xD5, 0x69, 0x88}};
inline constexpr _GUID dbSubTypeAGB = {
    0xC25DB002, 0x8B85, 0x4F6B, {0xBD, 0x77, 0x15, 0x55, 0x82, 0xB1, 0x97, 0x73}};
inline constexpr _GUID hdbTypeBaseNode = {
    0x141C2E80, 0xA1FF, 0x11D3, {0x87, 0x63, 0x00, 0x50, 0x04, 0x69, 0xA2, 0x67}};
inline constexpr _GUID dataBaseGUID = {
    0xFB8D35DE, 0xA9E8, 0x11D3, {0x87, 0x67, 0x00, 0x50, 0x04, 0x69, 0xA2, 0x67}};

// A node type of the host.
struct HDBTypeStorage {
  _GUID guid;

  bool operator==(const HDBTypeStorage& other) const {
    return std::memcmp(&guid, &other.guid, sizeof guid) == 0;
  }
  bool operator!=(const HDBTypeStorage& other) const { return !(*this == other); }
};

// --- Records. Texts are zero-terminated. ---

struct PGIVersionInfo {
  char name[256];
  char copyright[512];
  char author[256];
  qz::uchar majorVersion;
  qz::uchar minorVersion;
};

inline constexpr int PGI_MAXSUBTYPES = 16;

struct PGIInterfaceInfo {
  char name[256];
  _GUID guid;
  qz::ulong numSubTypes;
  _GUID subTypes[PGI_MAXSUBTYPES];
};

struct PGIInterfaceDescriptor {
  char name[256];
  _GUID guid;
  bool subTypeValid;
  _GUID subType;
};

// The host's manager. The library stores it and never calls it.
class PGIManagerInterface;

class PGIBaseInterface {
 public:
  // `manager` must not be null; not owned.
  virtual void SetManagerInterface(PGIManagerInterface* manager) = 0;
  // Records that are given out stay the library's, as long as it is loaded.
  virtual const PGIVersionInfo* GetVersionInfo() const = 0;
  // The enumeration has one cursor; null at the end.
  virtual const PGIInterfaceInfo* GetFirstInterface() const = 0;
  virtual const PGIInterfaceInfo* GetNextInterface() const = 0;
  // Gives an HDBAccessBaseInterface for a kind's GUID and the sub type dbSubTypeTarvane, or null:
  // a request without a sub type, or with another one, is refused. The caller owns the object until
  // ReleaseInterface with the same GUID. Selection is by GUID alone, not by name.
  virtual void* CreateInterface(const _GUID* guid, const _GUID* subType) = 0;
  virtual void* CreateInterface(const PGIInterfaceDescriptor* interfaceDesc) = 0;
  // Neither argument may be null. An unknown GUID releases nothing.
  virtual void ReleaseInterface(const _GUID* guid, void* interfacePtr) = 0;
  virtual void ReleaseInterface(const PGIInterfaceDescriptor* interfaceDesc,
                                void* interfacePtr) = 0;
  // True while no object of the factory is alive: the library may be unloaded.
  virtual bool RequestRemoval() = 0;

 protected:
  PGIBaseInterface() = default;
  ~PGIBaseInterface() = default;
  PGIBaseInterface(const PGIBaseInterface&) = default;
  PGIBaseInterface& operator=(const PGIBaseInterface&) = default;
};

// The library's one export. The object exists from load to unload; null only where memory ran out
// at load.
using RequestBaseInterfaceFunction = PGIBaseInterface* (*)();
inline constexpr const char* REQUESTBASEINTERFACE_NAME = "RequestBaseInterface";

#endif  // PUBLICINCLUDES_KELVO_PLUGIN_H_
