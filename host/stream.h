// MemoryStream: the stream that the host hands to a node's Load and Save, over a block of memory
// that becomes, or came from, a payload of the database.
//
// Numbers, texts and labels are those of every stream (diskio_typed.h). Memory has no file times:
// GetFileTime is false. One thread at a time.
#ifndef HOST_STREAM_H_
#define HOST_STREAM_H_

#include <vector>

#include "diskio/diskio_typed.h"

namespace samplehost {

class MemoryStream final : public DIOTypedStream {
 public:
  using Bytes = std::vector<uchar>;

  // An empty stream for writing and reading.
  MemoryStream() : DIOTypedStream(OPENMODE_CREATE) {}
  // A stream on `bytes`, positioned at the start; OPENMODE_OPEN refuses every write,
  // OPENMODE_APPEND stands at the end.
  explicit MemoryStream(Bytes bytes, DIOOpenMode mode = OPENMODE_OPEN);
  ~MemoryStream() = default;

  const Bytes& bytes() const { return bytes_; }
  // Ends the writing: fills the label references that wait. False where one could not be written.
  bool Finish() { return ResolveLabels(); }

  bool GetFileTime(DIOFileTime& creation, DIOFileTime& access, DIOFileTime& write) override;
  bool GetFileSize(uint64& size) override;
  bool GetFileSize(ulong& size) override;
  bool GetPosition(uint64& pos) override;
  bool GetPosition(ulong& pos) override;
  using DIOTypedStream::SetPosition;
  bool SetPosition(uint64 distance, DIOSeekMode mode) override;
  bool SetPosition(ulong distance, DIOSeekMode mode) override;

 protected:
  bool ReadBytes(void* buffer, ulong count, ulong& done) override;
  bool WriteBytes(const void* buffer, ulong count, ulong& done) override;

 private:
  Bytes bytes_;
  uint64 position_ = 0;  // may lie behind the end; a write there fills the gap with zeros
};

}  // namespace samplehost

#endif  // HOST_STREAM_H_
