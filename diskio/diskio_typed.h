// DIOTypedStream: everything of a stream that does not depend on where its bytes live.
//
// It turns numbers, texts, arrays and labels into bytes. A concrete stream derives from it and
// gives the bytes, the position and the size:
//
//   * ReadBytes and WriteBytes;
//   * of DIOFile: GetFileTime, both GetFileSize, both GetPosition, and SetPosition with the
//     unsigned distances (the signed forms forward to them with the same bit pattern; repeat
//     `using DIOTypedStream::SetPosition;` so that they stay visible);
//   * in what ends the stream: ResolveLabels, while it can still be written.
//
// The virtual operations added here stand behind those of DIOFile, whose slots stay as they are.
// No operation throws; a memory shortage is a plain `false`.
#ifndef DISKIO_DISKIO_TYPED_H_
#define DISKIO_DISKIO_TYPED_H_

#include <cstdarg>

#include "diskio/diskio.h"
#include "diskio/diskio_intern.h"

class DIOTypedStream : public DIOFile {
 public:
  void SetEndian(DIOEndianType endian) final;
  DIOOpenMode GetAccessMode() final;

  using DIOFile::SetPosition;
  bool SetPosition(int64 distance, DIOSeekMode mode) final;
  bool SetPosition(slong distance, DIOSeekMode mode) final;

  bool Read(void* buffer, ulong elemSize, ulong numElem) final;
  bool Read(char& value) final;
  bool Read(uchar& value) final;
  bool Read(short& value) final;
  bool Read(ushort& value) final;
  bool Read(slong& value) final;
  bool Read(ulong& value) final;
  bool Read(int64& value) final;
  bool Read(uint64& value) final;
  bool Read(float& value) final;
  bool Read(double& value) final;
  bool Read(v32& value) final;
  bool ReadString(qz::string& str) final;

  bool Write(const void* buffer, ulong elemSize, ulong numElem) final;
  bool Write(char value) final;
  bool Write(uchar value) final;
  bool Write(short value) final;
  bool Write(ushort value) final;
  bool Write(slong value) final;
  bool Write(ulong value) final;
  bool Write(int64 value) final;
  bool Write(uint64 value) final;
  bool Write(float value) final;
  bool Write(double value) final;
  bool Write(const v32& value) final;
  bool WriteString(const qz::string& string, ...) final;
  bool WriteStringZ(const qz::string& string, ...) final;

  bool Insert(DIOFile* source) final;
  bool Insert(DIOFile* source, uint64 length) final;

  void SetLabelMode(DIOLabelMode mode) final;
  bool SetLabel(const qz::string& name) final;
  uint64 GetLabel(const qz::string& name) const final;
  bool WriteLabel(const qz::string& name) final;

 protected:
  // What every stream keeps. Nothing of it survives the stream.
  struct State {
    DIOEndianType endian = ENDIAN_LITTLE;
    DIOOpenMode accessMode = OPENMODE_OPEN;
    DIOLabelMode labelMode = LABELMODE_SHORT;
    DIOLabelList labelList;         // what SetLabel named
    DIOLabelList openLabelRefList;  // where the first reference to a name waits for its position
  };

  explicit DIOTypedStream(DIOOpenMode accessMode) { state.accessMode = accessMode; }
  ~DIOTypedStream() = default;
  DIOTypedStream(const DIOTypedStream&) = delete;
  DIOTypedStream& operator=(const DIOTypedStream&) = delete;

  // Move up to `count` bytes (0 is legal) between `buffer` and the stream's position, and the
  // position by as many. True where nothing went wrong; the end of the stream makes `done` smaller
  // than `count` and is no error. `done` comes in as 0 and must tell the bytes that moved also
  // where the result is false. A read leaves the buffer behind `done` alone. Must not throw.
  virtual bool ReadBytes(void* buffer, ulong count, ulong& done) = 0;
  virtual bool WriteBytes(const void* buffer, ulong count, ulong& done) = 0;

  // Writes the positions of the labels that exist by now into the references that wait, with the
  // byte order and the label mode now in force. A label that was never set leaves its zeros and is
  // no failure. False where a write failed; the references behind it then stay zero. True, without
  // touching the stream, where none waits.
  bool ResolveLabels();

  State state;

 private:
  bool SameOrder() const;
  bool ReadAll(void* buffer, ulong count);
  bool WriteAll(const void* buffer, ulong count);
  template <typename T>
  bool ReadNumber(T& value);
  template <typename T>
  bool WriteNumber(T value);
  template <typename T>
  bool ReadArray(unsigned char* bytes, uint64 size);
  template <typename T>
  bool WriteArray(const unsigned char* bytes, uint64 size);
  bool WriteFormatted(const qz::string& format, bool withTerminator, std::va_list arguments);
};

#endif  // DISKIO_DISKIO_TYPED_H_
