#include "diskio/diskio_intern.h"

void DIOLabelList::add(const qz::string& name, qz::uint64 offset) {
  const iterator place = lower_bound(name);
  if (place != end() && place->name == name) return;
  emplace_hint(place, name, offset);
}

qz::uint64 DIOLabelList::get(const qz::string& name) const {
  const const_iterator found = find(name);
  return found == end() ? kUnknown : found->offset;
}

bool DIOConvertTime(const FILETIME& from, DIOFile::DIOFileTime& to) {
  SYSTEMTIME time{};
  if (::FileTimeToSystemTime(&from, &time) == FALSE) return false;
  to = {time.wYear, time.wMonth,  time.wDayOfWeek, time.wDay,
        time.wHour, time.wMinute, time.wSecond,    time.wMilliseconds};
  return true;
}
