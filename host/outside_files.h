// The files of a checked-out node, inside the database's sample folder and outside of it.
#ifndef HOST_OUTSIDE_FILES_H_
#define HOST_OUTSIDE_FILES_H_

#include <string>
#include <vector>

#include "host/session.h"

namespace samplehost {

// A raw file of a node, and where a check-out puts it. Native paths.
struct OutsideFile {
  std::string qualityClass;
  std::string inside;
  std::string outside;

  bool IsThere() const;
};

// Those of all classes of a node, for a check-out to a native folder.
std::vector<OutsideFile> OutsideFiles(Session& session, Node& node, const std::string& folder);

// Do two files, by their native paths, hold the same? A file that is missing does not.
bool SameBytes(const std::string& a, const std::string& b);

}  // namespace samplehost

#endif  // HOST_OUTSIDE_FILES_H_
