// Import of a batch of sound files into a database: one node a file. A file that cannot come in is
// remembered with its reason, and the batch goes on.
#ifndef HOST_IMPORT_H_
#define HOST_IMPORT_H_

#include <functional>
#include <string>
#include <vector>

#include "PublicIncludes/kelvo_data.h"
#include "host/session.h"

namespace samplehost {

// The sound files that the user's arguments stand for, as native paths: files as given, folders as
// the sound files in them by name, with `recursive` those in their folders too. The folder
// `except` (native) is left out: a database's own samples are not imported again.
// Arguments that stand for nothing come back as they are, to fail by themselves.
std::vector<std::string> CollectSoundFiles(const std::vector<std::string>& arguments,
                                           bool recursive, const std::string& except);

struct ImportOptions {
  std::string qualityClass;
  qz::uchar formatIndex = 0;
  std::string node;   // empty: a new node named after the file
  unsigned jobs = 1;  // worker processes; 1: this process imports by itself
};

struct Imported {
  std::string file;
  std::string node;
};

struct ImportFailure {
  std::string file;
  std::string reason;
  std::string advice;
};

struct ImportResult {
  std::vector<Imported> imported;
  std::vector<ImportFailure> failures;
  std::size_t left = 0;  // files not tried because the user stopped
};

// Called ahead of each file with its number from 0 and the count of all; false stops.
using ImportStep =
    std::function<bool(std::size_t number, std::size_t count, const std::string& file)>;

// Imports one file (full path) and gives its node.
Node& ImportFile(Session& session, const std::string& path, const ImportOptions& options);

// Imports the files; nodes and results are in the order of the files, whatever the number of jobs.
// Saves nothing.
ImportResult ImportFiles(Session& session, const std::vector<std::string>& files,
                         const ImportOptions& options, const ImportStep& step);

}  // namespace samplehost

#endif  // HOST_IMPORT_H_
