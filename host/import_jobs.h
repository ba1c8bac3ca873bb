// Import by several processes at a time. Each worker is a fork of this process: it imports a file
// into its own copy of the session and of the library, sends the node's payload back, and ends
// without closing either. The parent takes the payloads over, in the order of the files, so nothing
// is encoded twice; only the parent writes the database.
//
// The parent must have no other thread that is inside the library or the session.
#ifndef HOST_IMPORT_JOBS_H_
#define HOST_IMPORT_JOBS_H_

#include <string>
#include <vector>

#include "host/import.h"

namespace samplehost {

inline constexpr unsigned kMostJobs = 64;

// ImportFiles with options.jobs workers. A file whose worker dies is a failure of that file, and
// another worker takes its place.
ImportResult ImportInParallel(Session& session, const std::vector<std::string>& files,
                              const ImportOptions& options, const ImportStep& step);

}  // namespace samplehost

#endif  // HOST_IMPORT_JOBS_H_
