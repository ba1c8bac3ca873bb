#include "sampledata/sd_nodefile.h"

namespace nodefile {

namespace {

constexpr qz::uint64 kFileSizeOffset = 4;  // in an own file, behind "KLVO"
constexpr qz::uint64 kSizeField = 8;       // the width of every size

ReadResult ExpectTag(DIOFile* file, qz::ulong expected) {
  qz::ulong tag = 0;
  if (!file->Read(tag)) return ReadResult::kCouldNotRead;
  return tag == expected ? ReadResult::kOk : ReadResult::kBadFormat;
}

// The sizes in the file are not used: the chunks come in one fixed order.
bool SkipSize(DIOFile* file) {
  qz::uint64 size = 0;
  return file->Read(size);
}

ReadResult ExpectChunk(DIOFile* file, qz::ulong tag) {
  const ReadResult result = ExpectTag(file, tag);
  if (result != ReadResult::kOk) return result;
  return SkipSize(file) ? ReadResult::kOk : ReadResult::kCouldNotRead;
}

bool WriteChunkHead(DIOFile* file, qz::ulong tag, qz::uint64 size) {
  return file->Write(tag) && file->Write(size);
}

bool Seek(DIOFile* file, qz::uint64 position) {
  return file->SetPosition(position, DIOFile::SEEKMODE_START);
}

}  // namespace

bool WriteHead(DIOFile* file, bool ownFile, const _GUID& type, qz::uint64& startChunk) {
  // Sizes that are known only later start as 0; WriteTail fills them.
  if (ownFile && !(WriteChunkHead(file, Tag("KLVO"), 0) && file->Write(Tag("OBJ ")))) return false;
  return WriteChunkHead(file, Tag("TYPE"), sizeof type) && file->Write(&type, 1, sizeof type) &&
         WriteChunkHead(file, Tag("VERS"), sizeof kVersion) && file->Write(kVersion) &&
         WriteChunkHead(file, Tag("DATA"), 0) && file->GetPosition(startChunk);
}

bool WriteTail(DIOFile* file, bool ownFile, qz::uint64 startChunk) {
  qz::uint64 endChunk = 0;
  if (!file->GetPosition(endChunk) || !Seek(file, startChunk - kSizeField) ||
      !file->Write(endChunk - startChunk) || !Seek(file, endChunk)) {
    return false;
  }
  if (!ownFile) return true;
  qz::uint64 size = 0;
  return file->GetFileSize(size) && Seek(file, kFileSizeOffset) && file->Write(size);
}

ReadResult ReadFileHead(DIOFile* file, const _GUID& type) {
  // The magic and the size are read together: a file that is too short for both is a short read,
  // whatever its first bytes are.
  qz::ulong magic = 0;
  if (!file->Read(magic) || !SkipSize(file)) return ReadResult::kCouldNotRead;
  if (magic != Tag("KLVO")) return ReadResult::kBadFormat;
  ReadResult result = ExpectTag(file, Tag("OBJ "));
  if (result == ReadResult::kOk) result = ExpectChunk(file, Tag("TYPE"));
  if (result != ReadResult::kOk) return result;

  UUID stored{};
  if (!file->Read(&stored, 1, sizeof stored)) return ReadResult::kCouldNotRead;
  UUID expected = type;
  RPC_STATUS status = RPC_S_OK;
  return UuidCompare(&expected, &stored, &status) == 0 ? ReadResult::kOk : ReadResult::kBadFormat;
}

ReadResult ReadBodyHead(DIOFile* file, qz::ulong& version) {
  const ReadResult result = ExpectChunk(file, Tag("VERS"));
  if (result != ReadResult::kOk) return result;
  if (!file->Read(version)) return ReadResult::kCouldNotRead;
  return ExpectChunk(file, Tag("DATA"));
}

bool WriteText(DIOFile* file, const qz::string& text) {
  return file->WriteStringZ("%s", text.c_str());
}

}  // namespace nodefile
