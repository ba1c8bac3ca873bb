#include "diskio/diskio.h"

#include <new>
#include <tuple>

#include "diskio/diskio_stream.h"

namespace {

auto Key(const DIOFile::DIOFileTime& time) {
  return std::tie(time.year, time.month, time.day, time.hour, time.minute, time.second,
                  time.milliseconds);
}

}  // namespace

bool DIOFile::DIOFileTime::operator==(const DIOFileTime& other) const {
  return Key(*this) == Key(other);
}

bool DIOFile::DIOFileTime::operator!=(const DIOFileTime& other) const {
  return Key(*this) != Key(other);
}

bool DIOFile::DIOFileTime::operator<(const DIOFileTime& other) const {
  return Key(*this) < Key(other);
}

bool DIOFile::DIOFileTime::operator>(const DIOFileTime& other) const {
  return Key(*this) > Key(other);
}

bool DIOFile::DIOFileTime::operator<=(const DIOFileTime& other) const {
  return Key(*this) <= Key(other);
}

bool DIOFile::DIOFileTime::operator>=(const DIOFileTime& other) const {
  return Key(*this) >= Key(other);
}

DIOFile* DIOFile::OpenFile(const qz::string& name, DIOOpenMode mode) {
  _DIOFile* const file = new (std::nothrow) _DIOFile(mode);
  if (file != nullptr && !file->Open(name)) {
    delete file;
    return nullptr;
  }
  return file;
}

bool DIOFile::CloseFile(DIOFile*& file) {
  _DIOFile* const stream = static_cast<_DIOFile*>(file);
  const bool closed = stream->Close();
  delete stream;
  file = nullptr;
  return closed;
}
