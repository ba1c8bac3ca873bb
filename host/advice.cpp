#include "host/advice.h"

namespace samplehost {

std::string AdviceFor(SDAccessInterface::SDError error) {
  using Error = SDAccessInterface;
  switch (error) {
    case Error::ERROR_COULDNOTLOAD:
    case Error::ERROR_BADFORMAT:
    case Error::ERROR_COULDNOTGETSAMPLEINFO:
      return "Save the sound anew as WAV with 16 bits of plain PCM.";
    case Error::ERROR_UNSUPPORTEDFORMAT:
      return "Choose another --format.";
    case Error::ERROR_NOMEMORY:
      return "Free memory, or split the sound.";
    case Error::ERROR_READONLY:
      return "Unlock the node: samplehost unlock DB NODE";
    case Error::ERROR_COULDNOTWRITE:
    case Error::ERROR_COULDNOTCOPYSAMPLE:
      return "Check room and write permission in the sample folder (samplehost folder DB), and "
             "that "
             "no other program holds the file open.";
    case Error::ERROR_UNKNOWNCLASS:
      return "Make it first: samplehost class DB add NAME=LEVEL";
    case Error::ERROR_QUALITYNOTAVAILABLE:
      return "\"samplehost info DB NODE\" shows its classes.";
    case Error::ERROR_COULDNOTREAD:
    case Error::ERROR_COULDNOTDECODE:
      return "Put the node's files back into the sample folder, or remove and import it again.";
    case Error::ERROR_ISCHECKEDOUT:
      return "Bring it back first: checkin NODE, or undo-checkout NODE to leave the files outside.";
    case Error::ERROR_COULDNOTGATHERFILEINFO:
      return "\"samplehost info DB NODE\" shows the node's files.";
    case Error::ERROR_NOEXTRADATA:
      return "Only the ADPCM formats have extra data.";
    case Error::ERROR_INTERNAL:
      return "Check that the sample folder is there and may be written (samplehost folder DB).";
    default:
      return {};
  }
}

}  // namespace samplehost
