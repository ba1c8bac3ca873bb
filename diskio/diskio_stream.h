// _DIOFile: the stream on a platform file, as DIOFile::OpenFile makes it.
//
// It has no buffer of its own: each typed operation is one platform call and the position is the
// platform's, so GetPosition is always exact and a write is seen by the next read.
#ifndef DISKIO_DISKIO_STREAM_H_
#define DISKIO_DISKIO_STREAM_H_

#include "diskio/diskio_typed.h"
#include "platform/platform.h"

class _DIOFile final : public DIOTypedStream {
 public:
  explicit _DIOFile(DIOOpenMode accessMode) : DIOTypedStream(accessMode) {}
  // Closes nothing: a stream that skips Close leaks its handle and keeps its references unfilled.
  ~_DIOFile() = default;

  // Opens without sharing, as the stream's access mode says. Once per object.
  bool Open(const qz::string& name);
  // Fills the references that wait and closes the handle, of a stream that is open. False where
  // either failed; the handle is gone in every case.
  bool Close();

  bool GetFileTime(DIOFileTime& creation, DIOFileTime& access, DIOFileTime& write) override;
  bool GetFileSize(uint64& size) override;
  bool GetFileSize(ulong& size) override;
  bool GetPosition(uint64& pos) override;
  bool GetPosition(ulong& pos) override;
  using DIOTypedStream::SetPosition;
  bool SetPosition(uint64 distance, DIOSeekMode mode) override;
  bool SetPosition(ulong distance, DIOSeekMode mode) override;

  // The two ways of DIOFile::Execute, which chooses between them.
  static DIOError ExecuteWinNT(const qz::string& cmd, ulong& result, DIOCallback stdOut,
                               DIOCallback errOut);
  // Captures nothing: the child writes where this process does, and no callback is called.
  static DIOError ExecuteWin95(const qz::string& cmd, ulong& result, DIOCallback stdOut,
                               DIOCallback errOut);

 protected:
  bool ReadBytes(void* buffer, ulong count, ulong& done) override;
  bool WriteBytes(const void* buffer, ulong count, ulong& done) override;

 private:
  HANDLE handle = INVALID_HANDLE_VALUE;
};

#endif  // DISKIO_DISKIO_STREAM_H_
