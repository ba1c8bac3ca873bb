// The path functions: two texts, the first ended by a zero byte; a byte of flags; and one that
// chooses a failing allocation.
#include <new>
#include <string>

#include "diskio/diskio.h"
#include "fuzz/fuzz.h"
#include "platform/native.h"

namespace {

using fuzz::Check;

void Expand(const qz::string& name) {
  qz::string full;
  if (!DIOFile::ExpandPath(name, full)) return;
  if (full.starts_with(u"\\\\")) return;  // names of devices and servers, which no call takes
  qz::string again;
  const bool expanded = DIOFile::ExpandPath(full, again);
  Check((expanded && again == full) || fuzz::Faults::Fired(), "an absolute path stays as it is");
}

void Split(const qz::string& full) {
  qz::string path;
  qz::string base;
  DIOFile::SplitName(full, path, base);
  Check(base.find_first_of(u"\\/") == qz::string::npos, "a base name has no separator");

  qz::string name = full;
  qz::string extension;
  const bool chopped = DIOFile::ChopExtension(name, extension);
  Check(!chopped || name + "." + extension == full, "name and extension are the whole");
  Check(extension.find(u'.') == qz::string::npos, "an extension has no dot");
}

void Relate(const qz::string& from, const qz::string& to, unsigned flags) {
  qz::string relative = from;
  if (!DIOFile::MakeRelativePath(relative, from, to)) {
    Check(relative.empty(), "no path comes of a failure");
  }
  relative = from;
  const bool made =
      DIOFile::MakeRelativePath(relative, from, (flags & 1) != 0, to, (flags & 2) != 0);
  Check(made || relative == from, "a failure changes nothing");

  const bool same = DIOFile::PathsIdentical(from, to);
  Check(same == DIOFile::PathsIdentical(to, from) || fuzz::Faults::Fired(), "order is no matter");
  Check(DIOFile::PathsIdentical(from, from) || fuzz::Faults::Fired(), "a path is itself");
}

void Convert(const std::string& native) {
  std::string path;
  std::string why;
  if (!platform::FromNative(native, path, why)) return;
  qz::string full;
  const bool expanded = DIOFile::ExpandPath(path.c_str(), full);
  Check((expanded && full == path.c_str()) || fuzz::Faults::Fired(),
        "a native path becomes an absolute one");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const fuzz::Faults faults(input.TakeByte());
  const unsigned flags = input.TakeByte();
  try {
    const std::string first(input.TakeText());
    const std::string second(input.TakeText());
    const qz::string from(first.c_str());
    const qz::string to(second.c_str());
    Check(from.c_str() == first && to.c_str() == second, "narrow text survives the way there");

    qz::string clean = from;
    DIOFile::CleanupPath(clean);
    Check(clean.find(u'/') == qz::string::npos, "a clean path has no slash");
    Check(DIOFile::PathsIdentical(clean, from) || faults.Fired(), "a clean path is the same path");
    Expand(from);
    Split(from);
    Relate(from, to, flags);
    Convert(first);
  } catch (const std::bad_alloc&) {
    // Texts say so themselves; the operations do not.
    Check(faults.Fired(), "memory is there");
  }
  return 0;
}
