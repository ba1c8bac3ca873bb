// What the disk layer's files share among themselves: labels of a stream that is being written,
// the state of a folder search, the record of a child's run, and small services.
//
// A label is a named position. A reference is a number in the file that holds the position of a
// label; one that is written before its label exists waits as zeros until the stream is closed.
// Nothing of this reaches the file but the numbers.
#ifndef DISKIO_DISKIO_INTERN_H_
#define DISKIO_DISKIO_INTERN_H_

#include <cstddef>
#include <set>

#include "common/qzclasses.h"
#include "common/qztypes.h"
#include "diskio/diskio.h"
#include "platform/platform.h"

struct DIOLabel {
  DIOLabel(const qz::string& _name, qz::uint64 _offset) : name(_name), offset(_offset) {}

  qz::string name;
  qz::uint64 offset;
};

// By name alone, code unit by code unit, so case counts.
struct DIOLabelCmp {
  using is_transparent = void;  // a look-up by name copies no text
  bool operator()(const DIOLabel& a, const DIOLabel& b) const { return a.name < b.name; }
  bool operator()(const DIOLabel& a, const qz::string& b) const { return a.name < b; }
  bool operator()(const qz::string& a, const DIOLabel& b) const { return a < b.name; }
};

// Ascending by name; one label a name.
class DIOLabelList : public std::set<DIOLabel, DIOLabelCmp> {
 public:
  static constexpr qz::uint64 kUnknown = ~qz::uint64{0};

  // A name that is in the list keeps its first offset. Throws std::bad_alloc, and then nothing has
  // changed.
  void add(const qz::string& name, qz::uint64 offset);

  // The name's offset, or kUnknown.
  qz::uint64 get(const qz::string& name) const;
};

// One open search; DIOFileInfo::privateData owns it. Ends its platform search only through
// DIOFile::FindClose.
struct DIOPrivateFindData {
  HANDLE handle = INVALID_HANDLE_VALUE;
  WIN32_FIND_DATAA info{};  // the current entry
  qz::string pathBuffer;    // the absolute folder of the current entry, with its separator
  qz::string baseBuffer;    // kept for the record's layout; nothing fills it
  qz::string mask;          // what the search was opened with
};

// One child, between the thread that asked for it and the one that waits for its end. The latter
// writes `error` and `result`, and they may be read when it has ended.
struct EXInfo {
  qz::string cmdLine;
  DIOFile::DIOError error = DIOFile::ERROR_OK;
  qz::ulong result = 0;
  HANDLE giveUp = nullptr;  // an event that ends the wait, not the child; or null
};

// The thread procedure: starts the child of the EXInfo `lpParameter` and waits for its end. Always
// 0.
DWORD WINAPI ExecuteThread(LPVOID lpParameter);

// DIOFile::SplitName, with an answer: false where the memory is not to be had, and then both texts
// are empty.
bool DIOSplitName(const qz::string& full, qz::string& path, qz::string& base);

// The same number for all paths that DIOFile::PathsIdentical takes for one. Throws std::bad_alloc.
std::size_t DIOHashPath(const qz::string& path);

// Calendar form of a platform time, both UTC. On failure `to` stays as it was.
bool DIOConvertTime(const FILETIME& from, DIOFile::DIOFileTime& to);

#endif  // DISKIO_DISKIO_INTERN_H_
