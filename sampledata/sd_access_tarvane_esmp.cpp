// Readers of encoded files. A file holds a head, a table with the offset of each channel's chunk,
// and the chunks: two lengths, encoded data, extra data. docs/formats/esmp.md has the tables.
#include <cstring>
#include <memory>
#include <new>

#include "sampledata/sd_access.h"
#include "sampledata/sd_heap.h"
#include "sampledata/sd_stream.h"

namespace {

// Sizes in a file are believed only as far as the file reaches.
bool FileHolds(DIOFile* file, qz::uint64 bytes) {
  qz::uint64 size = 0;
  qz::uint64 position = 0;
  if (!file->GetFileSize(size) || !file->GetPosition(position)) return false;
  return position <= size && bytes <= size - position;
}

bool IsEncodedFile(const SDAccess::SDEncodedDataHeader& head) {
  return std::memcmp(head.id, SDAccess::kEncodedFileId, sizeof head.id) == 0;
}

// The stream's next `size` bytes as a block of the caller's.
SDAccess::SDError ReadBlock(DIOFile* file, qz::ulong size, HeapBlock& block) {
  if (!FileHolds(file, size)) return SDAccess::ERROR_COULDNOTREAD;
  block = AllocateBytes(size);
  if (block == nullptr) return SDAccess::ERROR_NOMEMORY;
  if (file->Read(block.get(), 1, size)) return SDAccess::ERROR_OK;
  block.reset();
  return SDAccess::ERROR_COULDNOTREAD;
}

// Reads the head and the lengths of a channel's chunk, and leaves the stream behind them.
SDAccess::SDError SeekChunk(DIOFile* file, qz::ushort channel, qz::ulong& dataLen,
                            qz::ulong& extraDataLen) {
  SDAccess::SDEncodedDataHeader head;
  if (!file->Read(&head, 1, sizeof head)) return SDAccess::ERROR_COULDNOTREAD;
  if (!IsEncodedFile(head)) return SDAccess::ERROR_BADFORMAT;
  if (channel >= head.numChannels) return SDAccess::ERROR_COULDNOTREAD;
  const std::unique_ptr<qz::ulong[]> table(new (std::nothrow) qz::ulong[head.numChannels]);
  if (table == nullptr) return SDAccess::ERROR_NOMEMORY;
  if (!file->Read(table.get(), sizeof(qz::ulong), head.numChannels) ||
      !file->SetPosition(qz::uint64{table[channel]}, DIOFile::SEEKMODE_START) ||
      !file->Read(dataLen) || !file->Read(extraDataLen)) {
    return SDAccess::ERROR_COULDNOTREAD;
  }
  return SDAccess::ERROR_OK;
}

// The encoded data of a channel's chunk, or its extra data: null with a size of 0 where there is
// none.
SDAccess::SDError ReadChannel(const qz::string& name, qz::ushort channel, bool extraData,
                              HeapBlock& block, qz::ulong& size) {
  const Stream file(name, DIOFile::OPENMODE_OPEN);
  if (!file) return SDAccess::ERROR_COULDNOTREAD;
  qz::ulong dataLen = 0;
  qz::ulong extraDataLen = 0;
  SDAccess::SDError err = SeekChunk(file.get(), channel, dataLen, extraDataLen);
  if (err != SDAccess::ERROR_OK) return err;
  if (extraData) {
    if (extraDataLen == 0) return SDAccess::ERROR_OK;
    // The 64-bit form: a 32-bit distance of 2 GiB or more would go backwards.
    if (!file->SetPosition(qz::uint64{dataLen}, DIOFile::SEEKMODE_CURRENT)) {
      return SDAccess::ERROR_COULDNOTREAD;
    }
  }
  const qz::ulong length = extraData ? extraDataLen : dataLen;
  err = ReadBlock(file.get(), length, block);
  if (err == SDAccess::ERROR_OK) size = length;
  return err;
}

}  // namespace

SDAccess::SDError SDAccess::ReadEncodedSampleInfo(const SDSample& sample, SDInfoIntern* info,
                                                  SDCompType& compType) const {
  SetError(ERROR_OK);
  const Stream file(BuildEncodedSampleDataFileName(sample.fileName), DIOFile::OPENMODE_OPEN);
  SDEncodedDataHeader head;
  if (!file || !file->Read(&head, 1, sizeof head) || !IsEncodedFile(head)) {
    return SetError(ERROR_COULDNOTREAD);
  }
  compType = static_cast<SDCompType>(head.compType);
  info->frq = head.frq;
  info->length = head.length;
  info->loop = head.loop;
  info->loopLength = head.loopLength;
  info->orgKey = sample.info.orgKey;
  return ERROR_OK;
}

SDAccess::SDError SDAccess::ReadEncodedSampleData(const SDSample& sample, ushort channel,
                                                  void*& data, ulong& dataSize) const {
  dataSize = 0;
  HeapBlock block;
  const SDError err =
      ReadChannel(BuildEncodedSampleDataFileName(sample.fileName), channel, false, block, dataSize);
  data = block.release();
  return SetError(err);
}

SDAccess::SDError SDAccess::ReadEncodedExtraSampleData(const SDSample& sample, ushort channel,
                                                       void*& data, ulong& dataSize) const {
  dataSize = 0;
  HeapBlock block;
  const SDError err =
      ReadChannel(BuildEncodedSampleDataFileName(sample.fileName), channel, true, block, dataSize);
  data = block.release();
  return SetError(err);
}
