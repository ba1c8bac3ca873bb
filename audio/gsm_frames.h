// The speech coder behind the GSM block codec. The build files choose what stands behind these
// names: libgsm (gsm_frames_libgsm.cpp), or nothing where there is none (gsm_frames_none.cpp).
//
// Objects carry the filter state of one sound in one direction.
#ifndef AUDIO_GSM_FRAMES_H_
#define AUDIO_GSM_FRAMES_H_

#include <memory>

inline constexpr int gsmBlockSamples = 160;
inline constexpr int gsmFrameSize = 33;
inline constexpr int gsmNumParameters = 76;

struct GsmObject;

// Null: no memory, or no coder in this build.
GsmObject* gsmFrames_Create();
void gsmFrames_Destroy(GsmObject* object);

// 160 samples to a frame of 33 bytes and back; `samples` is not changed.
void gsmFrames_Encode(GsmObject* object, short* samples, unsigned char* frame);
void gsmFrames_Decode(GsmObject* object, unsigned char* frame, short* samples);

// A frame to its 76 parameters and back.
void gsmFrames_Explode(GsmObject* object, unsigned char* frame, short* parameters);
void gsmFrames_Implode(GsmObject* object, short* parameters, unsigned char* frame);

struct GsmObjectDestroy {
  void operator()(GsmObject* object) const { gsmFrames_Destroy(object); }
};
using GsmObjectPtr = std::unique_ptr<GsmObject, GsmObjectDestroy>;

#endif  // AUDIO_GSM_FRAMES_H_
