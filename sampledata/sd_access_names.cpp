// The names of a node's folder and files.
//
// A node folder is the sample folder, a fresh UUID and a separator; a raw file is the node folder,
// a separator, the quality class and the imported file's extension; an encoded file differs from
// its raw file in the extension alone. What is stored is relative to the folder of the database
// file, so a database can move with its samples.
#include <memory>
#include <new>

#include "common/qzassert.h"
#include "diskio/diskio.h"
#include "sampledata/sd_access.h"
#include "sampledata/sd_setup.h"

namespace {
constexpr const char* kEncodedExtension = ".esmp";
}

bool SDAccess::CreateSampleFileName(const HDBBaseNodeInterface*, qz::string& sampleFileName) const {
  UUID uuid;
  RPC_STATUS ret = UuidCreate(&uuid);
  QZ_ASSERT(ret == RPC_S_OK, "ret == RPC_S_OK");
  RPC_CSTR text = nullptr;
  ret = UuidToStringA(&uuid, &text);
  if (ret == RPC_S_OUT_OF_MEMORY) throw std::bad_alloc();
  QZ_ASSERT(ret == RPC_S_OK, "ret == RPC_S_OK");
  const std::unique_ptr<RPC_CSTR, void (*)(RPC_CSTR*)> release(
      &text, [](RPC_CSTR* taken) { RpcStringFreeA(taken); });
  // Not through GetSampleFolder: it has no failure answer, and an empty folder is a wrong one.
  sampleFileName = static_cast<const SDSetup*>(setup)->sampleFolder +
                   reinterpret_cast<const char*>(text) + "\\" + sampleFileName;
  DIOFile::CleanupPath(sampleFileName);
  return true;
}

qz::string SDAccess::ExpandSamplePath(const qz::string& name) const {
  qz::string path = baseNode->GetRootInterface()->GetFilename();
  const auto separator = path.find_last_of("\\/:");
  if (separator != qz::string::npos) {
    path.erase(separator + 1);
  } else {
    path += "\\";
  }
  path += name;
  DIOFile::CleanupPath(path);
  return path;
}

bool SDAccess::SetupInternalName(qz::string& intName, const qz::string& originalName,
                                 const qz::string& qualClass) {
  qz::string oName = originalName;
  qz::string extension;
  if (!DIOFile::ChopExtension(oName, extension)) return false;
  if (internalSampleFileName.empty()) {
    CreateSampleFileName(baseNode, internalSampleFileName);
    // One level only: the sample folder itself is the host's to make.
    if (!DIOFile::CreateDirectoryA(ExpandSamplePath(internalSampleFileName))) return false;
  }
  intName = internalSampleFileName + "\\" + qualClass + "." + extension;
  return true;
}

qz::string SDAccess::BuildEncodedSampleDataFileName(const qz::string& internalName) const {
  qz::string encodedFileName = internalName;
  qz::string extension;
  DIOFile::ChopExtension(encodedFileName, extension);
  return ExpandSamplePath(encodedFileName) + kEncodedExtension;
}
