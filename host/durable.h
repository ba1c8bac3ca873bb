// What a save has to do so that a power cut behind it loses nothing: the database may name files
// only once they, and the folders that name them, are on the disk.
#ifndef HOST_DURABLE_H_
#define HOST_DURABLE_H_

#include <set>
#include <string>

namespace samplehost {

// Brings files and folders (native paths) to the disk, and waits for it. Failure where one cannot
// be brought there, or is not there.
void SyncToDisk(const std::set<std::string>& paths);

// Has the system begin to write a file, where it is large, so that a later sync of many waits less.
// Failures are left for that to tell.
void StartToDisk(const std::string& native);

}  // namespace samplehost

#endif  // HOST_DURABLE_H_
