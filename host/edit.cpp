// edit: a node's sounds go out to a folder of their own, a program changes them there, and they
// come back where it ended well.
#include <fmt/format.h>
#include <stdlib.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <optional>

#include "diskio/diskio.h"
#include "host/advice.h"
#include "host/failure.h"
#include "host/outside_files.h"
#include "host/paths.h"
#include "host/report.h"
#include "host/sample_data.h"
#include "host/sound_check.h"
#include "host/verbs.h"

namespace samplehost {

namespace {

// A new folder, removed with all that is in it.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    native_ = (std::filesystem::temp_directory_path() / "samplehost-edit-XXXXXX").string();
    if (::mkdtemp(native_.data()) == nullptr) {
      throw Failure(fmt::format("\"{}\" could not be made.", native_),
                    "Check the folder for temporary files (TMPDIR).");
    }
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(native_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::string& native() const { return native_; }

 private:
  std::string native_;
};

// A check-out that ends with its object unless it was checked in.
class CheckedOut {
 public:
  CheckedOut(Node& node, const std::string& folder) : node_(node) {
    Check(node.sample().CheckOut(FullPath(folder).c_str()));
  }
  ~CheckedOut() {
    if (node_.sample().IsCheckedOut()) node_.sample().UndoCheckOut();
  }
  CheckedOut(const CheckedOut&) = delete;
  CheckedOut& operator=(const CheckedOut&) = delete;

  void CheckIn() { Check(node_.sample().CheckIn()); }

 private:
  void Check(SDAccessInterface::SDError error) const {
    if (error == SDAccessInterface::ERROR_OK) return;
    throw Failure(fmt::format("Node \"{}\": {}.", node_.name(), node_.LastError()),
                  AdviceFor(error));
  }

  Node& node_;
};

// While it lives, an interrupt ends the program that runs and not this one, which has to tidy up. A
// handler does not pass on to a child, as ignoring the signal would.
class InterruptsForTheChild {
 public:
  InterruptsForTheChild() : before_(std::signal(SIGINT, [](int) {})) {}
  ~InterruptsForTheChild() { std::signal(SIGINT, before_); }
  InterruptsForTheChild(const InterruptsForTheChild&) = delete;
  InterruptsForTheChild& operator=(const InterruptsForTheChild&) = delete;

 private:
  void (*before_)(int);
};

// Where the child's output goes: the callbacks take nothing but a byte.
std::ostream* childOut = nullptr;
std::ostream* childErr = nullptr;

// An argument as the child's side takes a command line apart: quoted where it has to be, with
// backslashes doubled in front of quotes.
std::string Quote(const std::string& argument) {
  if (!argument.empty() && argument.find_first_of(" \t\n\v\"") == std::string::npos) {
    return argument;
  }
  std::string quoted = "\"";
  std::size_t backslashes = 0;
  for (const char c : argument) {
    if (c == '"') quoted.append(backslashes + 1, '\\');
    backslashes = c == '\\' ? backslashes + 1 : 0;
    quoted += c;
  }
  return quoted.append(backslashes, '\\') + '"';
}

// Runs the command on one file; Failure where it does not end with 0.
void Run(const Context& context, const std::vector<std::string>& command, const std::string& file) {
  std::string line;
  for (const std::string& word : command)
    line += Quote(word) + ' ';
  line += Quote(file);
  childOut = &context.out;
  childErr = &context.err;
  qz::ulong result = 0;
  const InterruptsForTheChild interrupts;
  const DIOFile::DIOError error = DIOFile::Execute(
      line.c_str(), result, [](char byte) { childOut->put(byte); },
      [](char byte) { childErr->put(byte); });
  context.out.flush();
  if (error == DIOFile::ERROR_COULDNOTEXECUTE) {
    throw Failure(fmt::format("\"{}\" could not be started.", command.front()),
                  "Check the program's name.");
  }
  if (error != DIOFile::ERROR_OK) {
    throw Failure(fmt::format("The output or the end of \"{}\" was lost.", command.front()));
  }
  if (result != 0) {
    throw Failure(
        fmt::format("\"{}\" ended with {}; the node stays as it was.", command.front(), result));
  }
}

// Is there a change to take? Failure where a file could not come in again.
bool HasChanged(const std::vector<OutsideFile>& files) {
  bool changed = false;
  for (const OutsideFile& file : files) {
    if (file.IsThere() && SameBytes(file.inside, file.outside)) continue;
    if (const std::optional<Refusal> refusal = CheckSoundFile(FullPath(file.outside))) {
      throw Failure(
          fmt::format("\"{}\" cannot be taken back: {}.",
                      std::filesystem::path(file.outside).filename().string(), refusal->reason),
          refusal->advice);
    }
    changed = true;
  }
  return changed;
}

void RequireWhole(Session& session, Node& node) {
  const std::vector<SampleFacts> all = AllFactsOf(session, node);
  const bool whole = std::all_of(all.begin(), all.end(), [&node](const SampleFacts& facts) {
    return EncodedIsWhole(node, facts);
  });
  if (whole) return;
  node.sample().UndoCheckIn();
  throw Failure("An encoded file could not be written whole; the node stays as it was.",
                "Make room on the disk.");
}

}  // namespace

int Edit(const Context& context, const std::string& name, const std::vector<std::string>& command) {
  Session& session = Open(context);
  Node& node = session.RequireHealthy(name);
  const std::string why = WhyNoFileName(name);
  if (!why.empty()) throw Failure(fmt::format("No file can be named \"{}\": {}.", name, why));
  const TemporaryFolder folder;
  CheckedOut out(node, folder.native());
  const std::vector<OutsideFile> files = OutsideFiles(session, node, folder.native());
  if (files.empty()) throw Failure(fmt::format("Node \"{}\" has no samples.", name));
  for (const OutsideFile& file : files)
    Run(context, command, file.outside);
  if (!HasChanged(files)) {
    context.err << "note: no file has changed.\n";
    return kAllWell;
  }
  out.CheckIn();
  RequireWhole(session, node);
  node.checkInOvertaken = false;
  Finish(context, session);
  return kAllWell;
}

}  // namespace samplehost
