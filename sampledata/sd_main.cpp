#include "sampledata/sd_main.h"

#include <cstring>
#include <exception>
#include <new>

#include "common/qzassert.h"
#include "sampledata/sd_access.h"
#include "sampledata/sd_setup.h"

namespace {

// The load hook runs among the static constructors of the module, in no order that could be relied
// on, so everything that it touches stands ready in the file itself.
constinit PGISampleDataBaseInterface* baseInterface = nullptr;

constexpr PGIVersionInfo versionInfo = {"Tarvane Sample Data Manager",
                                        "Copyright (c) 2026 the SampleData authors",
                                        "The SampleData authors", 1, 0};

enum InterfaceIndex : qz::slong { kUnknown = -1, kSampleData = 0, kSampleDataSetup = 1 };

// In the order of InterfaceIndex. The sub type that the factory asks for is not announced.
constexpr PGIInterfaceInfo Interfaces[] = {{"SampleData", hdbTypeSampleData, 0, {}},
                                           {"SampleDataSetup", hdbTypeSampleDataSetup, 0, {}}};

qz::slong GetInterfaceIndex(const _GUID& guid) {
  UUID wanted = guid;
  qz::slong index = 0;
  for (const PGIInterfaceInfo& row : Interfaces) {
    UUID known = row.guid;
    RPC_STATUS status = RPC_S_OK;
    if (UuidCompare(&known, &wanted, &status) == 0) return index;
    ++index;
  }
  return kUnknown;
}

// The host knows every object by its base class, so that is what passes through the untyped
// pointer both ways.
template <class Node>
void* Create(qz::ulong& count) {
  try {
    HDBAccessBaseInterface* node = new Node;
    ++count;
    return node;
  } catch (const std::exception&) {
    return nullptr;
  }
}

template <class Node>
void Release(void* interfacePtr, qz::ulong& count) {
  delete static_cast<Node*>(static_cast<HDBAccessBaseInterface*>(interfacePtr));
  --count;
}

}  // namespace

PGISampleDataBaseInterface::PGISampleDataBaseInterface(HINSTANCE hInst)
    : InterfaceList(std::begin(Interfaces), std::end(Interfaces)),
      currentEnumInterface(InterfaceList.end()),
      stringTab(hInst) {}

void PGISampleDataBaseInterface::SetManagerInterface(PGIManagerInterface* manager) {
  QZ_ASSERT(manager != nullptr, "manager!=NULL");
  managerInterface = manager;
}

const PGIVersionInfo* PGISampleDataBaseInterface::GetVersionInfo() const {
  return &versionInfo;
}

const PGIInterfaceInfo* PGISampleDataBaseInterface::GetFirstInterface() const {
  currentEnumInterface = InterfaceList.begin();
  return GetNextInterface();
}

const PGIInterfaceInfo* PGISampleDataBaseInterface::GetNextInterface() const {
  if (currentEnumInterface == InterfaceList.end()) return nullptr;
  return &*currentEnumInterface++;
}

void* PGISampleDataBaseInterface::CreateInterface(const _GUID* guid, const _GUID* subType) {
  QZ_ASSERT(guid != nullptr, "guid!=NULL");
  if (guid == nullptr) return nullptr;
  PGIInterfaceDescriptor descriptor{};
  descriptor.guid = *guid;
  descriptor.subTypeValid = subType != nullptr;
  if (subType != nullptr) descriptor.subType = *subType;
  return CreateInterface(&descriptor);
}

void* PGISampleDataBaseInterface::CreateInterface(const PGIInterfaceDescriptor* interfaceDesc) {
  QZ_ASSERT(interfaceDesc != nullptr, "interfaceDesc!=NULL");
  if (interfaceDesc == nullptr || !interfaceDesc->subTypeValid) return nullptr;
  if (std::memcmp(&interfaceDesc->subType, &dbSubTypeTarvane, sizeof dbSubTypeTarvane) != 0) {
    return nullptr;
  }
  switch (GetInterfaceIndex(interfaceDesc->guid)) {
    case kSampleData:
      return Create<SDAccess>(refCountAccess);
    case kSampleDataSetup:
      return Create<SDSetup>(refCountSetup);
    default:
      return nullptr;
  }
}

void PGISampleDataBaseInterface::ReleaseInterface(const _GUID* guid, void* interfacePtr) {
  QZ_ASSERT(guid != nullptr, "guid!=NULL");
  if (guid == nullptr) return;
  PGIInterfaceDescriptor descriptor{};
  descriptor.guid = *guid;
  ReleaseInterface(&descriptor, interfacePtr);
}

void PGISampleDataBaseInterface::ReleaseInterface(const PGIInterfaceDescriptor* interfaceDesc,
                                                  void* interfacePtr) {
  QZ_ASSERT(interfaceDesc != nullptr, "interfaceDesc!=NULL");
  QZ_ASSERT(interfacePtr != nullptr, "interfacePtr!=NULL");
  if (interfaceDesc == nullptr || interfacePtr == nullptr) return;
  switch (GetInterfaceIndex(interfaceDesc->guid)) {
    case kSampleData:
      return Release<SDAccess>(interfacePtr, refCountAccess);
    case kSampleDataSetup:
      return Release<SDSetup>(interfacePtr, refCountSetup);
    default:
      return;
  }
}

bool PGISampleDataBaseInterface::RequestRemoval() {
  return refCountAccess == 0 && refCountSetup == 0;
}

PGIBaseInterface* RequestBaseInterface() {
  return baseInterface;
}

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) {
    try {
      baseInterface = new PGISampleDataBaseInterface(module);
    } catch (const std::exception&) {
      // The load succeeds all the same; RequestBaseInterface then gives null.
      baseInterface = nullptr;
    }
  } else if (reason == DLL_PROCESS_DETACH) {
    delete baseInterface;
    baseInterface = nullptr;
  }
  return TRUE;
}
