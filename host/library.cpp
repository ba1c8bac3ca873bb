#include "host/library.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <cstring>
#include <filesystem>
#include <system_error>

#include "host/failure.h"

// The library keeps a pointer to its host's manager and asks nothing of it.
class PGIManagerInterface {};

namespace samplehost {

namespace {

PGIManagerInterface manager;

constexpr int kMajorVersion = 1;

bool SameGuid(const _GUID& a, const _GUID& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

bool Offers(const PGIBaseInterface* base, const _GUID& type) {
  for (const PGIInterfaceInfo* info = base->GetFirstInterface(); info != nullptr;
       info = base->GetNextInterface()) {
    if (SameGuid(info->guid, type)) return true;
  }
  return false;
}

const char* LoaderMessage() {
  const char* text = dlerror();
  return text != nullptr ? text : "no reason given";
}

}  // namespace

const _GUID& TypeOf(NodeKind kind) {
  return kind == NodeKind::kSetup ? hdbTypeSampleDataSetup : hdbTypeSampleData;
}

std::string SampleLibrary::DefaultPath() {
  namespace fs = std::filesystem;
  std::error_code error;
  const fs::path program = fs::read_symlink("/proc/self/exe", error);
  const fs::path beside = program.parent_path() / "SampleData.so";
  if (!error && fs::exists(beside, error)) return beside.string();
  return SAMPLEHOST_LIBRARY;
}

SampleLibrary::SampleLibrary(const std::string& nativePath) : path_(nativePath) {
  // A bare name would be searched for along the loader's path; --library means a file.
  const std::string file = std::filesystem::absolute(nativePath).string();
  handle_ = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle_ == nullptr) {
    throw Failure(fmt::format("The library could not be loaded: {}", LoaderMessage()),
                  "Give its path with --library.");
  }
  void* symbol = dlsym(handle_, REQUESTBASEINTERFACE_NAME);
  const auto request = reinterpret_cast<RequestBaseInterfaceFunction>(symbol);
  if (request != nullptr) base_ = request();
  try {
    Check();
  } catch (...) {
    dlclose(handle_);
    throw;
  }
}

void SampleLibrary::Check() const {
  if (base_ == nullptr) {
    throw Failure(fmt::format("\"{}\" is not a SampleData library.", path_));
  }
  base_->SetManagerInterface(&manager);
  const PGIVersionInfo* version = base_->GetVersionInfo();
  if (version->majorVersion != kMajorVersion) {
    throw Failure(fmt::format("\"{}\" is version {}.{} of the library; this program needs {}.x.",
                              path_, version->majorVersion, version->minorVersion, kMajorVersion));
  }
  for (const NodeKind kind : {NodeKind::kSetup, NodeKind::kSample}) {
    if (!Offers(base_, TypeOf(kind))) {
      throw Failure(fmt::format("\"{}\" does not offer sample and setup nodes.", path_));
    }
  }
}

SampleLibrary::~SampleLibrary() {
  Unload();
}

HDBAccessBaseInterface* SampleLibrary::Create(NodeKind kind) {
  void* object = base_->CreateInterface(&TypeOf(kind), &dbSubTypeTarvane);
  if (object == nullptr) throw Failure("The library could not make a node.");
  return static_cast<HDBAccessBaseInterface*>(object);
}

void SampleLibrary::Release(NodeKind kind, HDBAccessBaseInterface* object) {
  base_->ReleaseInterface(&TypeOf(kind), object);
}

bool SampleLibrary::Unload() {
  if (handle_ == nullptr) return true;
  if (!base_->RequestRemoval()) return false;
  dlclose(handle_);
  handle_ = nullptr;
  base_ = nullptr;
  return true;
}

}  // namespace samplehost
