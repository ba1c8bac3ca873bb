// SampleLibrary: the loaded SampleData library, from dlopen to dlclose.
//
// Loading follows the order that the library asks for: its one export, the manager, then the
// version record and the list of interfaces, both of which are checked. Objects that Create gave
// must be back through Release before the library is unloaded.
#ifndef HOST_LIBRARY_H_
#define HOST_LIBRARY_H_

#include <string>

#include "PublicIncludes/kelvo_data.h"
#include "PublicIncludes/kelvo_plugin.h"

namespace samplehost {

enum class NodeKind { kSetup, kSample };

// The type of a node of that kind, which is also the type that its payload names.
const _GUID& TypeOf(NodeKind kind);

class SampleLibrary {
 public:
  // Failure where the file cannot be loaded or is not a library that this host can work with.
  explicit SampleLibrary(const std::string& nativePath);
  ~SampleLibrary();
  SampleLibrary(const SampleLibrary&) = delete;
  SampleLibrary& operator=(const SampleLibrary&) = delete;

  // The library beside the running program, else the one that the program was built with.
  static std::string DefaultPath();

  PGIBaseInterface* base() const { return base_; }

  // A new, unbound object; Failure where the library gives none. Owned by the caller until Release.
  HDBAccessBaseInterface* Create(NodeKind kind);
  void Release(NodeKind kind, HDBAccessBaseInterface* object);

  // Unloads the library if it says that it can go; otherwise it stays loaded and the result is
  // false. Nothing else may be called afterwards.
  bool Unload();

 private:
  void Check() const;

  std::string path_;
  void* handle_ = nullptr;
  PGIBaseInterface* base_ = nullptr;
};

}  // namespace samplehost

#endif  // HOST_LIBRARY_H_
