// The operations of the codec, the sound files and the disk layer by themselves.
#include <cstdlib>
#include <cstring>
#include <memory>

#include "adpcm/adpcm.h"
#include "audio/MORT_codecs.h"
#include "audio/audio.h"
#include "tests/sd_fault_world.h"

namespace sdtest {

namespace {

// What was given out, for the comparison with a run in which nothing fails.
void Give(World& w, const void* bytes, std::size_t size) {
  const SparedAllocations own;
  w.result.append(static_cast<const char*>(bytes), size);
}

// --- The codec ---

constexpr qz::ulong kSamples = 300;

std::vector<short> Samples() {
  const SparedAllocations own;
  const Wav sound = SomeSound(kSamples);
  return {sound.samples.begin(), sound.samples.end()};
}

int Encode(World& w) {
  std::vector<short> samples = Samples();
  qz::ulong count = kSamples;
  qz::ulong loop = 30;
  _ADPCMINFO info;
  std::memset(static_cast<void*>(&info), 0xA5, sizeof info);
  if (adpcmEncodeSample(samples.data(), &count, &loop, &count, &info, nullptr) == 0) {
    const bool left = info.Data != nullptr || info.CoefTable != nullptr || info.y0 != nullptr ||
                      info.y1 != nullptr;
    return left ? kNotWhole : kNoCode;
  }
  Give(w, info.Data, info.DataBytes);
  adpcmFreeEncoded(&info);
  return 0;
}

bool Decode(World& w) {
  qz::uchar frames[80] = {1, 2, 3, 4, 5, 6, 7, 8};
  short table[16] = {2048, 1024};
  short* const decoded = adpcmDecodeSample(frames, 140, table, nullptr);
  if (decoded == nullptr) return false;
  Give(w, decoded, 280);
  std::free(decoded);
  return true;
}

// The kernels design tables of up to 8 rows.
template <int kRows>
bool Design(World& w) {
  std::vector<short> samples = Samples();
  short table[2 * kRows] = {};
  if (!adpcmCoefTableDesign(samples.data(), kSamples, kRows, table, 0, nullptr)) return false;
  Give(w, table, sizeof table);
  return true;
}

// --- Sound files ---

// A seek may read ahead; what it could not have is read again where it is wanted.
const Calls kRetried = {platform::Call::kReadFile, platform::Call::kCloseHandle};

Operation Read(const char* name) {
  return {.name = std::string("sound ") + name,
          .body =
              [path = std::string("W:\\") + name](World& w) {
                _AUDIO audio{};
                const int code = audio_ReadWave(path.c_str(), &audio, false);
                if (code == AUDIO_OK) Give(w, audio.Samples, audio.LengthInBytes);
                audio_FreeWave(&audio);
                return code;
              },
          .codes = {AUDIO_NOTFOUND, AUDIO_NOMEMORY, AUDIO_UNKNOWNTYPE, AUDIO_BADCONTENT,
                    AUDIO_BADMORTVERSION, AUDIO_DATAENDED},
          .untold = kRetried};
}

Operation Unpack(const char* name) {
  return Silent(std::string("unpacking of ") + name, [path = std::string("W:\\") + name](World& w) {
    _AUDIO audio{};
    {
      const SparedAllocations own;
      EXPECT_EQ(AUDIO_OK, audio_ReadWave(path.c_str(), &audio, false));
    }
    _AUDIO* const plain = mort_Decode(&audio);
    if (plain != nullptr) Give(w, plain->Samples, plain->LengthInBytes);
    mort_Release(plain);
    audio_FreeWave(&audio);
    return plain != nullptr;
  });
}

// A writer that has failed leaves a part of its file.
Operation Write(const char* name, const char* from, int format) {
  return {.name = std::string("sound to ") + name,
          .body =
              [to = std::string("S:\\out\\") + name, path = std::string("W:\\") + from,
               format](World&) {
                _AUDIO audio{};
                {
                  const SparedAllocations own;
                  EXPECT_EQ(AUDIO_OK, audio_ReadWave(path.c_str(), &audio, false));
                }
                const int code = audio_WriteWave(to.c_str(), &audio, format);
                audio_FreeWave(&audio);
                return code;
              },
          .codes = {AUDIO_WRITEFAILED},
          .leaves = {"disk out/"},
          .untold = kRetried,
          .deletes = {"disk out/"}};
}

// --- Streams, folders, paths ---

const qz::string kStream = "S:\\out\\a stream with a longer name";
const qz::string kText = "a longer format: %s";
const qz::string kLabel = "a label with a name that is kept on the heap";

Operation OnStream(const char* name, DIOFile::DIOOpenMode mode,
                   const std::function<bool(World&, DIOFile*)>& body, const Calls& untold = kEnds) {
  return {name,
          [mode, body](World& w) {
            DIOFile* file = DIOFile::OpenFile(kStream, mode);
            if (file == nullptr) return kNoCode;
            const bool done = body(w, file);
            return DIOFile::CloseFile(file) && done ? 0 : kNoCode;
          },
          [](World&) {
            DIOFile* file = DIOFile::OpenFile(kStream, DIOFile::OPENMODE_CREATE);
            EXPECT_TRUE(file->WriteStringZ(kText, std::string(1100, '\n').c_str()));
            EXPECT_TRUE(DIOFile::CloseFile(file));
          },
          {kNoCode},
          {"disk out/"},
          false,
          untold,
          untold == kEnds ? Lines() : Lines{"disk out/"},
          {"disk out/"}};
}

Operation Text(const char* name, const std::function<bool(qz::string& to)>& body) {
  return Silent(name, [body](World& w) {
    qz::string text;
    if (!body(text)) return false;
    const SparedAllocations own;
    w.result = text.c_str();
    return true;
  });
}

int Search(World& w) {
  static const qz::string kMask = "W:\\*.wav";
  DIOFile::DIOFileInfo info;
  if (!DIOFile::FindFirst(kMask, info)) return kNoCode;
  int found = 1;
  while (DIOFile::FindNext(info))
    ++found;
  DIOFile::FindClose(info);
  const SparedAllocations own;
  w.result = "found";
  return found == 4 ? 0 : kNoCode;  // a search has no answer but its end
}

int Execute(World&) {
  static const qz::string kLine = "true with arguments";
  qz::ulong result = 7;
  const DIOFile::DIOError error = DIOFile::Execute(
      kLine, result, [](char) {}, [](char) {});
  EXPECT_EQ(error == DIOFile::ERROR_OK ? 0u : 7u, result);
  return error;
}

}  // namespace

std::vector<Operation> SoundOperations() {
  return {{"encode of a stream", Encode, {}, {kNoCode}},
          Silent("decode of a stream", Decode),
          Silent("table design", Design<8>),
          Silent("table design of 16 rows", Design<16>),
          Read("16.wav"),
          Read("8.wav"),
          Read("16.aif"),
          Read("8.aif"),
          Read("gsm.mort"),
          Unpack("gsm.mort"),
          Unpack("gb.mort"),
          Write("a.wav", "16.aif", AUDIO_FORMAT_WAV),
          Write("8.wav", "8.aif", AUDIO_FORMAT_WAV),
          Write("unpacked.wav", "gb.mort", AUDIO_FORMAT_WAV),
          Write("gsm.mort", "16.wav", AUDIO_FORMAT_MORT_GSM),
          Write("gb.mort", "16.wav", AUDIO_FORMAT_MORT_GB)};
}

std::vector<Operation> StreamOperations() {
  const qz::string path = "W:\\16.wav";
  const qz::string deep = "S:\\out\\a folder of a longer name\\and one inside of it";
  const qz::string beside = "S:\\out\\a file of another name.with its extension";
  return {
      OnStream("stream anew", DIOFile::OPENMODE_CREATE, [](World&, DIOFile*) { return true; }),
      OnStream("text to write", DIOFile::OPENMODE_MODIFY,
               [text = std::string(1100, '\n')](World&, DIOFile* file) {
                 return file->WriteStringZ(kText, text.c_str());
               }),
      OnStream("stream to go on with", DIOFile::OPENMODE_APPEND,
               [](World& w, DIOFile* file) {
                 qz::uint64 position = 0;
                 if (!file->GetPosition(position)) return false;
                 const SparedAllocations own;
                 w.result = std::to_string(position);
                 return true;
               }),
      OnStream("text to read", DIOFile::OPENMODE_OPEN,
               [](World& w, DIOFile* file) {
                 qz::string text;
                 if (!file->ReadString(text)) return false;
                 const SparedAllocations own;
                 w.result = text.c_str();
                 return true;
               }),
      OnStream(
          "labels", DIOFile::OPENMODE_CREATE,
          [](World&, DIOFile* file) { return file->WriteLabel(kLabel) && file->SetLabel(kLabel); },
          kEnds + Calls{platform::Call::kSetFilePointer}),
      OnStream("insert", DIOFile::OPENMODE_CREATE,
               [path](World&, DIOFile* file) {
                 DIOFile* source = DIOFile::OpenFile(path, DIOFile::OPENMODE_OPEN);
                 if (source == nullptr) return false;
                 const bool done = file->Insert(source);
                 return DIOFile::CloseFile(source) && done;
               }),
      Text("full path", [path](qz::string& to) { return DIOFile::ExpandPath(path, to); }),
      Text("relative path",
           [deep, beside](qz::string& to) {
             return DIOFile::MakeRelativePath(to, deep, true, beside, false);
           }),
      Text("extension",
           [beside](qz::string& to) {
             qz::string name;
             try {
               name = beside;
             } catch (const std::bad_alloc&) {
               return false;  // the test's own
             }
             return DIOFile::ChopExtension(name, to);
           }),
      Text("base name",
           [deep](qz::string& to) {
             qz::string folder;
             DIOFile::SplitName(deep, folder, to);
             return !to.empty();
           }),
      Text("current folder", [](qz::string& to) { return DIOFile::GetCurrentDirectoryA(to); }),
      // What cannot be looked for is made, and then is there or not.
      {.name = "folders",
       .body = [deep](World&) { return DIOFile::CreatePath(deep, false) ? 0 : kNoCode; },
       .codes = {kNoCode},
       .leaves = {"+ disk out/a folder"},
       .untold = kEnds + Calls{platform::Call::kFindFirstFile, platform::Call::kGetFullPathName}},
      Silent("copy of a file", [path, beside](World&) { return DIOFile::Copy(path, beside); }),
      {.name = "search",
       .body = Search,
       .codes = {kNoCode},
       .untold = {platform::Call::kGetFullPathName, platform::Call::kFindNextFile,
                  platform::Call::kFindClose}},
      {"program",
       Execute,
       {},
       {DIOFile::ERROR_COULDNOTEXECUTE, DIOFile::ERROR_COULDNOTCAPTUREOUTPUT,
        DIOFile::ERROR_NORESULTKNOWN}},
  };
}

}  // namespace sdtest
