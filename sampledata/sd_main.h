// The library's outer face: the one object behind RequestBaseInterface, and its factory.
#ifndef SAMPLEDATA_SD_MAIN_H_
#define SAMPLEDATA_SD_MAIN_H_

#include <list>

#include "PublicIncludes/kelvo_plugin.h"
#include "common/qzclasses.h"

// Lives from library load to unload. Nodes that were not given back by then stay undestroyed.
class PGISampleDataBaseInterface final : public PGIBaseInterface {
 public:
  // `hInst` is the module whose string resources `stringTab` reads.
  explicit PGISampleDataBaseInterface(HINSTANCE hInst);

  void SetManagerInterface(PGIManagerInterface* manager) override;
  const PGIVersionInfo* GetVersionInfo() const override;
  const PGIInterfaceInfo* GetFirstInterface() const override;
  const PGIInterfaceInfo* GetNextInterface() const override;
  void* CreateInterface(const _GUID* guid, const _GUID* subType) override;
  void* CreateInterface(const PGIInterfaceDescriptor* interfaceDesc) override;
  void ReleaseInterface(const _GUID* guid, void* interfacePtr) override;
  void ReleaseInterface(const PGIInterfaceDescriptor* interfaceDesc, void* interfacePtr) override;
  bool RequestRemoval() override;

 private:
  PGIManagerInterface* managerInterface = nullptr;  // stored, never called
  std::list<PGIInterfaceInfo> InterfaceList;
  // The one cursor of the enumeration, which is const to the host.
  mutable std::list<PGIInterfaceInfo>::const_iterator currentEnumInterface;
  qz::ulong refCountAccess = 0;
  qz::ulong refCountSetup = 0;

 public:
  qz::strtable stringTab;  // where every node finds its messages
};

// The module's one export.
extern "C" PLATFORM_EXPORT PGIBaseInterface* RequestBaseInterface();

#endif  // SAMPLEDATA_SD_MAIN_H_
