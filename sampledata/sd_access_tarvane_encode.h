// The one writer of encoded files.
#ifndef SAMPLEDATA_SD_ACCESS_TARVANE_ENCODE_H_
#define SAMPLEDATA_SD_ACCESS_TARVANE_ENCODE_H_

#include "audio/audio.h"
#include "sampledata/sd_access.h"

// Writes the encoded file of a sample, replacing an older one, from the plain record of its raw
// file, which `sample.info` describes. `sample.compType` is one of the five formats. After a
// failure no file is there, except that a failed write goes unnoticed: ERROR_UNSUPPORTEDFORMAT
// where the sound is too long for the file's 32-bit offsets, ERROR_COULDNOTWRITE where the file
// cannot be made (an older one may have stayed), ERROR_NOMEMORY. May throw std::bad_alloc, and has
// then left no partial file.
SDAccess::SDError WriteEncodedFile(const qz::string& name, const SDSample& sample,
                                   const _AUDIO& record);

#endif  // SAMPLEDATA_SD_ACCESS_TARVANE_ENCODE_H_
