#include "sampledata/sd_intern.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <set>
#include <utility>

#include "diskio/diskio_intern.h"
#include "sampledata/sd_access.h"
#include "sampledata/sd_setup.h"

// --- Versions ---

void SDVersionID::init() {
  UuidCreate(&guid);
}

bool SDVersionID::operator==(const SDVersionID& other) const {
  return std::memcmp(&guid, &other.guid, sizeof guid) == 0;
}

// --- Quality classes ---

const SDClass* SDClassList::Find(const qz::string& name) const {
  for (const SDClass& entry : *this) {
    if (entry.GetName() == name) return &entry;
  }
  return nullptr;
}

SDClass* SDClassList::Find(const qz::string& name) {
  return const_cast<SDClass*>(std::as_const(*this).Find(name));
}

const SDClass* SDClassList::Find(qz::uchar level) const {
  for (const SDClass& entry : *this) {
    if (entry.GetLevel() == level) return &entry;
  }
  return nullptr;
}

SDClass* SDClassList::Find(qz::uchar level) {
  return const_cast<SDClass*>(std::as_const(*this).Find(level));
}

bool SDClassList::AddRef(const qz::string& name) {
  SDClass* const found = Find(name);
  if (found != nullptr) found->AddRef();
  return found != nullptr;
}

bool SDClassList::RemoveRef(const qz::string& name) {
  SDClass* const found = Find(name);
  if (found != nullptr) found->RemoveRef();
  return found != nullptr;
}

// --- Samples ---

bool SDSample::RemoveFiles(SDAccess* access) {
  static_cast<SDSetup*>(access->setup)->MarkFilesForDeletion(SDDeleteInfo(access, this));
  return true;
}

bool SDSample::UnremoveFiles(SDAccess* access) {
  static_cast<SDSetup*>(access->setup)->UnmarkFilesForDeletion(SDDeleteInfo(access, this));
  return true;
}

const SDSample* SDSampleList::FindSample(const qz::string& qualClass) const {
  for (const SDSample& sample : *this) {
    if (sample.qualClass == qualClass) return &sample;
  }
  return nullptr;
}

SDSample* SDSampleList::FindSample(const qz::string& qualClass) {
  return const_cast<SDSample*>(std::as_const(*this).FindSample(qualClass));
}

// --- Deferred deletion ---

SDDeleteInfo::SDDeleteInfo(const SDAccess* access, const SDSample* sample)
    : rawName(access->ExpandSamplePath(sample->fileName)),
      encodedName(access->BuildEncodedSampleDataFileName(sample->fileName)),
      folder(rawName) {
  const qz::string::size_type separator = folder.find_last_of("\\/");
  if (separator != qz::string::npos) folder.erase(separator);
  hash = DIOHashPath(rawName);
}

SDDeleteInfo::SDDeleteInfo(const qz::string& _rawName, const qz::string& _encodedName,
                           const qz::string& _folder)
    : rawName(_rawName), encodedName(_encodedName), folder(_folder), hash(DIOHashPath(_rawName)) {}

namespace {

// Names are mostly spelled alike. That needs no memory to find out, and running out of it must not
// leave a file marked that is in use.
bool IsSamePath(const qz::string& a, const qz::string& b) {
  return a == b || DIOFile::PathsIdentical(a, b);
}

}  // namespace

bool SDDeleteInfo::operator==(const SDDeleteInfo& other) const {
  return hash == other.hash && IsSamePath(rawName, other.rawName) &&
         IsSamePath(encodedName, other.encodedName) && IsSamePath(folder, other.folder);
}

bool SDDeleteInfo::exec(qz::string& _folder) const {
  DIOFile::Delete(rawName);
  DIOFile::Delete(encodedName);
  _folder = folder;
  return true;
}

namespace {

enum class FolderContent { kNotFound, kFiles, kNoFiles };

// Subfolders count as no content here: the deletion of such a folder then fails, and says so.
FolderContent LookInto(const qz::string& folder) {
  DIOFile::DIOFileInfo entry;
  if (!DIOFile::FindFirst(folder + "\\*.*", entry)) return FolderContent::kNotFound;
  while (entry.isDir && DIOFile::FindNext(entry)) {
  }
  DIOFile::FindClose(entry);
  return entry.isDir ? FolderContent::kNoFiles : FolderContent::kFiles;
}

}  // namespace

void SDDeleteInfoList::push_back(const SDDeleteInfo& info) {
  std::list<SDDeleteInfo> entry{info};
  places.insert({info.GetHash(), {entry.begin()}});
  entries.splice(entries.end(), entry);
}

void SDDeleteInfoList::append(SDDeleteInfoList& other) noexcept {
  while (!other.empty())
    appendFirst(other);
}

void SDDeleteInfoList::appendFirst(SDDeleteInfoList& other) noexcept {
  // The first of the list is the first of its hash.
  auto place = other.places.extract(other.places.lower_bound(other.front().GetHash()));
  places.insert(std::move(place));
  entries.splice(entries.end(), other.entries, other.entries.begin());
}

void SDDeleteInfoList::clear() {
  entries.clear();
  places.clear();
  bookMark = 0;
}

void SDDeleteInfoList::setBookmark() const {
  bookMark = static_cast<qz::ulong>(size());
  for (auto& [hash, place] : places)
    place.marked = true;
}

bool SDDeleteInfoList::exec() const {
  try {
    std::set<qz::string> folders;
    qz::ulong left = bookMark;
    for (const SDDeleteInfo& entry : entries) {
      if (left == 0) break;
      --left;
      qz::string folder;
      entry.exec(folder);
      folders.insert(folder);
    }
    return std::all_of(folders.begin(), folders.end(), [](const qz::string& folder) {
      return LookInto(folder) != FolderContent::kNoFiles || DIOFile::Delete(folder);
    });
  } catch (const std::exception&) {
    return false;
  }
}

bool SDDeleteInfoList::execAll() const {
  setBookmark();
  return exec();
}

bool SDDeleteInfoList::remove(const SDDeleteInfo& info) {
  const auto [first, last] = places.equal_range(info.GetHash());
  const auto found =
      std::find_if(first, last, [&](const auto& place) { return *place.second.entry == info; });
  if (found == last) return false;
  if (found->second.marked) --bookMark;
  entries.erase(found->second.entry);
  places.erase(found);
  return true;
}

bool SDDeleteInfoList::check(const SDDeleteInfo& info) const {
  const auto [first, last] = places.equal_range(info.GetHash());
  return std::any_of(first, last, [&](const auto& place) { return *place.second.entry == info; });
}
