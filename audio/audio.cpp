#include "audio/audio.h"

#include <algorithm>
#include <cstdarg>
#include <cstdlib>

#include "audio/MORT_codecs.h"
#include "audio/MORT_format.h"
#include "audio/MORT_writer.h"
#include "audio/WAV_writer.h"
#include "audio/audio_intern.h"
#include "platform/platform.h"

char AudioErrorMsg[AUDIO_ERRORMSGSIZE];
char* audio_ErrorMsg = AudioErrorMsg;
qz::slong audio_ErrorCode;

void audioResetError() {
  audio_ErrorCode = 0;
  audio_ErrorMsg = AudioErrorMsg;
  AudioErrorMsg[0] = '\0';
}

int audioFail(int code, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(AudioErrorMsg, sizeof AudioErrorMsg, format, arguments);
  va_end(arguments);
  return code;
}

bool audioAllocSamples(_AUDIO* audio, bool infoOnly) {
  // An empty sound has a block too: null means failure.
  const std::size_t size = std::max(audio->LengthInBytes, qz::ulong{1});
  audio->Samples = infoOnly ? std::malloc(size) : std::calloc(size, 1);
  if (audio->Samples == nullptr) {
    audioFail(AUDIO_NOMEMORY, "Out of memory!");
    return false;
  }
  if (!infoOnly) platform::ExpectFilled(audio->Samples, size);
  return true;
}

namespace {

int ReadFile(std::FILE* file, const char* name, _AUDIO* audio, bool infoOnly) {
  for (const AudioReader& reader : audioReaders) {
    if (reader.IsValid(file)) return reader.ReadWave(file, audio, infoOnly);
  }
  return audioFail(AUDIO_UNKNOWNTYPE, "File `%s' is of an unknown type!", name);
}

int OpenAndRead(const char* name, _AUDIO* audio, bool stream, bool infoOnly) {
  audioResetError();
  *audio = _AUDIO{};
  std::FILE* file = platform::fopen(name, "rb");
  if (file == nullptr) return audioFail(AUDIO_NOTFOUND, "File `%s' not found!", name);
  if (stream) {
    audio->Stream = static_cast<_AUDIO_STREAM*>(std::calloc(1, sizeof(_AUDIO_STREAM)));
    if (audio->Stream == nullptr) {
      std::fclose(file);
      return audioFail(AUDIO_NOMEMORY, "Out of memory!");
    }
    audio->Stream->fhandle = file;
  }

  int result = ReadFile(file, name, audio, infoOnly);
  // A file that ends early reads as zeros; a disk that fails must not pass for one.
  if (result == AUDIO_OK && std::ferror(file) != 0) {
    result = audioFail(AUDIO_BADCONTENT, "Error reading file `%s'!", name);
  }
  // A file that a reader took belongs to the record's stream, where there is one.
  if (audio->Stream == nullptr || result == AUDIO_UNKNOWNTYPE) std::fclose(file);
  return result;
}

// A writer's own result says only whether it failed.
int WriterResult(int result) {
  return result == 0 ? AUDIO_OK : AUDIO_WRITEFAILED;
}

int WriteAsWAV(const char* name, _AUDIO* audio) {
  switch (audio->UsesCompression) {
    case MORT_COMPRESSION_NONE:
      return WriterResult(wav_WriteWave(name, audio));
    case MORT_COMPRESSION_GSM:
    case MORT_COMPRESSION_GB: {
      _AUDIO* plain = mort_Decode(audio);
      if (plain == nullptr) return audioFail(AUDIO_WRITEFAILED, "Error decompression MORT file!");
      const int result = wav_WriteWave(name, plain);
      mort_Release(plain);
      return WriterResult(result);
    }
    default:
      return AUDIO_WRITEFAILED;
  }
}

}  // namespace

int audio_ReadWave(const char* name, _AUDIO* audio, bool stream) {
  return OpenAndRead(name, audio, stream, false);
}

int audio_GetFileInfo(const char* name, _AUDIO* audio) {
  return OpenAndRead(name, audio, false, true);
}

int audio_FreeWave(_AUDIO* audio) {
  audioResetError();
  if (audio != nullptr) std::free(audio->Samples);
  return AUDIO_OK;
}

int audio_WriteWave(const char* name, _AUDIO* audio, int format) {
  audioResetError();
  switch (format) {
    case AUDIO_FORMAT_WAV:
      return WriteAsWAV(name, audio);
    case AUDIO_FORMAT_MORT_GSM:
      return WriterResult(mort_WriteWave(name, audio, MORT_CODEC_GSM));
    case AUDIO_FORMAT_MORT_GB:
      return WriterResult(mort_WriteWave(name, audio, MORT_CODEC_GB));
    default:
      return audioFail(AUDIO_UNKNOWNTYPE, "Unsupported save format!");
  }
}
