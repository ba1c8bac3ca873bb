// The verbs of the command line, without its parsing. Each gives the exit code of the program: 0
// where all went well, 1 where some failed. Failures that end a verb are thrown. Data goes to `out`
// (standard output), everything else to `err`.
#ifndef HOST_VERBS_H_
#define HOST_VERBS_H_

#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/export.h"
#include "host/session.h"

namespace samplehost {

inline constexpr int kAllWell = 0;
inline constexpr int kSomeFailed = 1;
inline constexpr int kUsage = 2;

// What every verb gets.
//
// On the command line a verb opens the database, and saves what it changed. In a session the
// database is open already, and what changed waits for the user's save.
struct Context {
  std::string libraryPath;  // native path of the library
  std::string database;     // native path of the database
  std::ostream& out = std::cout;
  std::ostream& err = std::cerr;
  bool progress = false;  // standard error is a terminal

  Session* session = nullptr;               // the open session of a user; null on the command line
  mutable std::unique_ptr<Session> opened;  // what a verb of the command line opened
  bool sync = true;                         // a save waits for the disk
};

// The session that a verb works on, opened where it is not.
Session& Open(const Context& context);
// Names the damaged nodes on `err`.
void WarnOfDamage(const Context& context, Session& session);
// Ends a verb that changed something: saves, or leaves that to the user of the session.
void Finish(const Context& context, Session& session);

struct NewArguments {
  std::string folder = "samples";
  std::vector<std::string> classes;  // NAME=LEVEL
  std::string defaultType;           // "raw", "compressed" or empty
  bool onlyDefault = false;
};
int New(const Context& context, const NewArguments& arguments);

int AddClasses(const Context& context, const std::vector<std::string>& classes);  // NAME=LEVEL
int RemoveClasses(const Context& context, const std::vector<std::string>& names);
int ListClasses(const Context& context);

// Shows the sample folder, or takes a new one.
int Folder(const Context& context, const std::optional<std::string>& folder);

int SetLock(const Context& context, const std::string& node, bool locked);

struct ImportArguments {
  std::vector<std::string> files;
  std::string qualityClass;
  std::string format;
  std::string node;
  bool recursive = false;
  unsigned jobs = 1;
};
int Import(const Context& context, const ImportArguments& arguments);

int List(const Context& context, bool json, bool withNoise);
int Info(const Context& context, const std::string& node, bool json);

struct ExportArguments {
  std::string node;
  std::string qualityClass;
  ExportAs as = ExportAs::kRaw;
  std::string target;
  std::optional<unsigned> channel;
  bool force = false;
};
int Export(const Context& context, const ExportArguments& arguments);

int Format(const Context& context, const std::string& node, const std::string& qualityClass,
           const std::string& format);
// Without a class the whole node.
int Remove(const Context& context, const std::string& node,
           const std::optional<std::string>& qualityClass);

// Runs a command on each of a node's sounds, copied out for it, and takes back what it changed.
int Edit(const Context& context, const std::string& node, const std::vector<std::string>& command);

// These work on files alone, without a database.
int Dump(const Context& context, const std::string& file);
int SoundFileInfo(const Context& context, const std::string& file, bool json);

struct ConvertArguments {
  std::string source;
  std::string target;  // .wav or .mort
  std::string codec;   // of MORT; empty: gsm
  bool force = false;
};
int Convert(const Context& context, const ConvertArguments& arguments);

}  // namespace samplehost

#endif  // HOST_VERBS_H_
