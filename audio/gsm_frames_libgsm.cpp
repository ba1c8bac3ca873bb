#include <gsm.h>

#include "audio/gsm_frames.h"

static_assert(sizeof(gsm_frame) == gsmFrameSize);

namespace {

// No option is set on an object: streams depend on it.
gsm Gsm(GsmObject* object) {
  return reinterpret_cast<gsm>(object);
}

}  // namespace

GsmObject* gsmFrames_Create() {
  return reinterpret_cast<GsmObject*>(gsm_create());
}

void gsmFrames_Destroy(GsmObject* object) {
  gsm_destroy(Gsm(object));
}

void gsmFrames_Encode(GsmObject* object, short* samples, unsigned char* frame) {
  gsm_encode(Gsm(object), samples, frame);
}

void gsmFrames_Decode(GsmObject* object, unsigned char* frame, short* samples) {
  // It fails only for a frame without libgsm's magic, and gsm_implode has put it there.
  gsm_decode(Gsm(object), frame, samples);
}

void gsmFrames_Explode(GsmObject* object, unsigned char* frame, short* parameters) {
  gsm_explode(Gsm(object), frame, parameters);
}

void gsmFrames_Implode(GsmObject* object, short* parameters, unsigned char* frame) {
  gsm_implode(Gsm(object), parameters, frame);
}
