// What `info FILE` tells of a sound file: what it holds and where, and why it would be refused.
#ifndef HOST_SOUND_INFO_H_
#define HOST_SOUND_INFO_H_

#include <ostream>
#include <string>

namespace samplehost {

// Prints it for people, or as JSON with stable keys, in which what the file does not tell is null.
// False where the library would not take the file, or not what it promises. Failure where there is
// no file to read, UsageFailure for a database.
bool PrintSoundInfo(const std::string& file, bool json, std::ostream& out);

}  // namespace samplehost

#endif  // HOST_SOUND_INFO_H_
