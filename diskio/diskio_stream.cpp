#include "diskio/diskio_stream.h"

#include "diskio/diskio_intern.h"

namespace {

DWORD Origin(DIOFile::DIOSeekMode mode) {
  if (mode == DIOFile::SEEKMODE_CURRENT) return FILE_CURRENT;
  return mode == DIOFile::SEEKMODE_END ? FILE_END : FILE_BEGIN;
}

// Moves by a signed 64-bit distance. An all-ones low half is a legal position, which only the last
// error tells from a failure.
bool Seek(HANDLE handle, qz::uint64 distance, DWORD origin, qz::uint64& position) {
  LONG high = static_cast<LONG>(static_cast<DWORD>(distance >> 32));
  const DWORD low = ::SetFilePointer(
      handle, static_cast<LONG>(static_cast<DWORD>(distance & 0xFFFFFFFFu)), &high, origin);
  if (low == INVALID_SET_FILE_POINTER && ::GetLastError() != NO_ERROR) return false;
  position = (qz::uint64{static_cast<DWORD>(high)} << 32) | low;
  return true;
}

bool Size(HANDLE handle, qz::uint64& size) {
  DWORD high = 0;
  const DWORD low = ::GetFileSize(handle, &high);
  if (low == INVALID_FILE_SIZE && ::GetLastError() != NO_ERROR) return false;
  size = (qz::uint64{high} << 32) | low;
  return true;
}

}  // namespace

bool _DIOFile::Open(const qz::string& name) {
  const char* const path = name.c_str();
  const DWORD access =
      state.accessMode == OPENMODE_OPEN ? GENERIC_READ : GENERIC_READ | GENERIC_WRITE;
  DWORD disposition = OPEN_EXISTING;
  if (state.accessMode == OPENMODE_CREATE) {
    // What stands in the way of this shows when the new file is made.
    ::DeleteFileA(path);
    disposition = CREATE_NEW;
  }
  handle = ::CreateFileA(path, access, 0, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return false;
  // Behind a failed move the first write would go over the head of the file.
  if (state.accessMode == OPENMODE_APPEND && !SetPosition(uint64{0}, SEEKMODE_END)) {
    Close();
    return false;
  }
  return true;
}

bool _DIOFile::Close() {
  const bool resolved = ResolveLabels();
  const bool closed = ::CloseHandle(handle) != FALSE;
  handle = INVALID_HANDLE_VALUE;
  return resolved && closed;
}

bool _DIOFile::GetFileTime(DIOFileTime& creation, DIOFileTime& access, DIOFileTime& write) {
  FILETIME times[3] = {};
  if (::GetFileTime(handle, &times[0], &times[1], &times[2]) == FALSE) return false;
  DIOFileTime converted[3] = {};
  for (int i = 0; i < 3; ++i) {
    if (!DIOConvertTime(times[i], converted[i])) return false;
  }
  creation = converted[0];
  access = converted[1];
  write = converted[2];
  return true;
}

bool _DIOFile::GetFileSize(uint64& size) {
  return Size(handle, size);
}

bool _DIOFile::GetFileSize(ulong& size) {
  uint64 whole = 0;
  if (!Size(handle, whole) || whole > 0xFFFFFFFFu) return false;
  size = static_cast<ulong>(whole);
  return true;
}

bool _DIOFile::GetPosition(uint64& pos) {
  return Seek(handle, 0, FILE_CURRENT, pos);
}

bool _DIOFile::GetPosition(ulong& pos) {
  const DWORD low = ::SetFilePointer(handle, 0, nullptr, FILE_CURRENT);
  if (low == INVALID_SET_FILE_POINTER) return false;
  pos = low;
  return true;
}

bool _DIOFile::SetPosition(uint64 distance, DIOSeekMode mode) {
  uint64 position = 0;
  return Seek(handle, distance, Origin(mode), position);
}

bool _DIOFile::SetPosition(ulong distance, DIOSeekMode mode) {
  return ::SetFilePointer(handle, static_cast<LONG>(distance), nullptr, Origin(mode)) !=
         INVALID_SET_FILE_POINTER;
}

bool _DIOFile::ReadBytes(void* buffer, ulong count, ulong& done) {
  DWORD moved = 0;
  const bool fine = ::ReadFile(handle, buffer, count, &moved, nullptr) != FALSE;
  done = moved;
  return fine;
}

bool _DIOFile::WriteBytes(const void* buffer, ulong count, ulong& done) {
  DWORD moved = 0;
  const bool fine = ::WriteFile(handle, buffer, count, &moved, nullptr) != FALSE;
  done = moved;
  return fine;
}
