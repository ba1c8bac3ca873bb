// Records of the library that only its own classes see: samples, quality classes, undo snapshots,
// and the bookkeeping of files that are to leave the disk.
//
// Value types; lists keep their order and own their records. Nothing here talks to the host.
#ifndef SAMPLEDATA_SD_INTERN_H_
#define SAMPLEDATA_SD_INTERN_H_

#include <cstddef>
#include <list>
#include <map>

#include "PublicIncludes/kelvo_tarvanesampledata.h"
#include "common/qzclasses.h"

class SDAccess;
class SDSample;

// --- Versions ---

// Identity of a saved state. Every new object is a fresh unique value; copies are equal.
class SDVersionID {
 public:
  SDVersionID() { init(); }
  void init();
  bool operator==(const SDVersionID& other) const;
  bool operator!=(const SDVersionID& other) const { return !(*this == other); }

 private:
  _GUID guid;
};

// --- Quality classes ---

class SDClass {
 public:
  SDClass(const qz::string& _name, qz::uchar _level) : name(_name), level(_level) {}
  SDClass(const qz::string& _name, qz::uchar _level, qz::ushort _count)
      : name(_name), level(_level), refCount(_count) {}

  const qz::string& GetName() const { return name; }
  qz::uchar GetLevel() const { return level; }
  qz::ushort GetRefCount() const { return refCount; }
  // The new count. 16-bit arithmetic without a guard at either end.
  qz::ushort AddRef() { return ++refCount; }
  qz::ushort RemoveRef() { return --refCount; }

 private:
  qz::string name;
  qz::uchar level;
  qz::ushort refCount = 0;
};

// By ascending level; names and levels are unique, which SDSetup::AddQualityClass sees to.
class SDClassList : public std::list<SDClass> {
 public:
  // Null where there is none. Names compare with case.
  SDClass* Find(const qz::string& name);
  const SDClass* Find(const qz::string& name) const;
  SDClass* Find(qz::uchar level);
  const SDClass* Find(qz::uchar level) const;
  bool AddRef(const qz::string& name);
  bool RemoveRef(const qz::string& name);
};

// --- Samples ---

// Numbers of one sound file.
struct SDInfoIntern {
  qz::ulong frq = 0;          // Hz
  qz::uint64 length = 0;      // samples per channel
  qz::uint64 loop = 0;        // first sample of the loop; 0 without a loop
  qz::uint64 loopLength = 0;  // samples in the loop; 0 without a loop
  qz::uchar orgKey = 0;
};

using SDCompType = SDTarvaneAccessInterface::SDCompType;

// One sample in one quality class: a raw file and its encoded form, in the node's folder.
class SDSample {
 public:
  const qz::string& GetQualClass() const { return qualClass; }

  // Mark and unmark the sample's files for deletion. No file is touched. Always true.
  bool RemoveFiles(SDAccess* access);
  bool UnremoveFiles(SDAccess* access);

  qz::string qualClass;                                           // the key within the node
  SDCompType compType = SDTarvaneAccessInterface::COMPTYPE_NONE;  // the encoding wanted
  qz::ulong numChannels = 0;                                      // of the raw file
  SDInfoIntern info;                                              // of the raw file, as last read
  SDInfoIntern encodedInfo;  // of the encoded file's head, as last read
  qz::string originalName;   // full path that it was imported from
  qz::string fileName;       // the raw copy, relative to the folder of the database file
  // The setup's saved version at this sample's last load or save. A fresh value equals none, so a
  // sample that no save has covered differs from the setup's.
  SDVersionID savedVersionIdentifier;
};

// In import order; no two entries have the same class.
class SDSampleList : public std::list<SDSample> {
 public:
  SDSample* FindSample(const qz::string& qualClass);
  const SDSample* FindSample(const qz::string& qualClass) const;
};

// --- Undo ---

enum SDUndoAction {
  UNDO_SD_DELETED = 0,
  UNDO_SDSAMPLE_DELETED = 1,
  UNDO_SDSAMPLE_LOADED = 2,
  UNDO_SDSAMPLE_IMPORTED = 3,
  UNDO_SD_COPIED = 4,
  UNDO_SDSAMPLE_TYPECHANGE = 5,
  UNDO_SD_QUALITYCHANGE = 6
};

// String table ids of the descriptions.
enum SDUndoDescription {
  UNDODESCRIPTION_COPY = 1025,
  UNDODESCRIPTION_LOAD = 1026,
  UNDODESCRIPTION_DELETE = 1027,
  UNDODESCRIPTION_IMPORT = 1028,
  UNDODESCRIPTION_TYPECHANGE = 1029,
  UNDODESCRIPTION_QUALITYCHANGE = 1030
};

// A node's state from before a change. HDBUndoInfo::data points to one, on the heap.
struct SDUndo {
  SDUndo() = default;
  explicit SDUndo(const qz::string& _qualClass) : qualClass(_qualClass) {}
  SDUndo(const SDSampleList& smpList, const qz::string& _selQualClass,
         const qz::string& _internalSampleFileName)
      : sampleList(smpList),
        selQualityClass(_selQualClass),
        internalSampleFileName(_internalSampleFileName) {}

  SDSampleList sampleList;
  qz::string selQualityClass;  // the selected class, or the class that the change concerned
  qz::string qualClass;        // the selected class before a change of selection
  qz::string internalSampleFileName;
};

// --- Deferred deletion ---

// The two files of one sample, and their folder without a trailing separator. Full paths.
class SDDeleteInfo {
 public:
  SDDeleteInfo(const SDAccess* access, const SDSample* sample);

  const qz::string& getRawName() const { return rawName; }
  const qz::string& getEncodedName() const { return encodedName; }
  const qz::string& getFolder() const { return folder; }

  // The same files: paths compare without case and kind of separator. Files that are the same have
  // the same hash.
  std::size_t GetHash() const { return hash; }
  bool operator==(const SDDeleteInfo& other) const;

  // Deletes both files, whatever comes of it, and gives the folder. Always true.
  bool exec(qz::string& _folder) const;

 private:
  friend struct SDTestAccess;
  SDDeleteInfo(const qz::string& _rawName, const qz::string& _encodedName,
               const qz::string& _folder);

  qz::string rawName;
  qz::string encodedName;
  qz::string folder;
  std::size_t hash;
};

// Files that are to go, with the number of entries, from the front, that may go now. New entries
// come last, behind that bookmark; equal ones may stand twice. Entries are found by their hash, so
// that a database of thousands of nodes can mark and unmark each of them.
class SDDeleteInfoList {
 public:
  using const_iterator = std::list<SDDeleteInfo>::const_iterator;

  SDDeleteInfoList() = default;
  SDDeleteInfoList(SDDeleteInfoList&&) = default;  // places stay good where entries move
  ~SDDeleteInfoList() = default;

  const_iterator begin() const { return entries.begin(); }
  const_iterator end() const { return entries.end(); }
  std::size_t size() const { return entries.size(); }
  bool empty() const { return entries.empty(); }
  const SDDeleteInfo& front() const { return entries.front(); }

  // Throws std::bad_alloc; the list is then as it was.
  void push_back(const SDDeleteInfo& info);
  // Move all entries of `other`, which has no bookmark, or its first one, to the end. They need no
  // memory.
  void append(SDDeleteInfoList& other) noexcept;
  void appendFirst(SDDeleteInfoList& other) noexcept;
  void clear();

  void setBookmark() const;
  // Deletes the files of the entries in front of the bookmark, then each of their folders that is
  // left without files. The list stays as it is. False where such a folder could not be deleted;
  // the folders behind it are then left alone.
  bool exec() const;
  // exec for all entries.
  bool execAll() const;
  // Erases the first equal entry; false where there is none.
  bool remove(const SDDeleteInfo& info);
  bool check(const SDDeleteInfo& info) const;

 private:
  friend struct SDTestAccess;

  struct Place {
    std::list<SDDeleteInfo>::iterator entry;
    bool marked = false;  // the entry stands in front of the bookmark
  };

  std::list<SDDeleteInfo> entries;
  mutable std::multimap<std::size_t, Place> places;  // by hash; those of one hash in list order
  mutable qz::ulong bookMark = 0;
};

#endif  // SAMPLEDATA_SD_INTERN_H_
