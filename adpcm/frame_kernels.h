// The frame encoder and decoder of each level; kernels.h has their contracts.
#ifndef ADPCM_FRAME_KERNELS_H_
#define ADPCM_FRAME_KERNELS_H_

#include <cstddef>

#include "common/qztypes.h"

namespace adpcm {

void EncodeFramesScalar(short* samples, std::size_t count, qz::uchar* frames, const short* table);
void EncodeFramesAvx2(short* samples, std::size_t count, qz::uchar* frames, const short* table);
void EncodeFramesPortable(short* samples, std::size_t count, qz::uchar* frames, const short* table);
void DecodeFramesScalar(const qz::uchar* frames, std::size_t count, short* history, short* samples,
                        const short* table);
void DecodeFramesAvx2(const qz::uchar* frames, std::size_t count, short* history, short* samples,
                      const short* table);
void DecodeFramesPortable(const qz::uchar* frames, std::size_t count, short* history,
                          short* samples, const short* table);

}  // namespace adpcm

#endif  // ADPCM_FRAME_KERNELS_H_
