// For builds without libgsm: no object can be made, so the GSM codec of MORT answers its failure,
// and nothing behind it is ever called.
#include "audio/gsm_frames.h"

GsmObject* gsmFrames_Create() {
  return nullptr;
}
void gsmFrames_Destroy(GsmObject*) {}
void gsmFrames_Encode(GsmObject*, short*, unsigned char*) {}
void gsmFrames_Decode(GsmObject*, unsigned char*, short*) {}
void gsmFrames_Explode(GsmObject*, unsigned char*, short*) {}
void gsmFrames_Implode(GsmObject*, short*, unsigned char*) {}
