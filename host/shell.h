// The shell: a session that is worked on line by line, at a prompt on a terminal, else from a
// script or standard input. A line is a verb with its arguments, as on the command line but without
// the database.
#ifndef HOST_SHELL_H_
#define HOST_SHELL_H_

#include <string>
#include <vector>

#include "host/verbs.h"

namespace samplehost {

// The words of a line: separated by blanks, "..." and '...' hold blanks together, # begins a
// comment where a word could begin. Failure where a quote is not closed.
std::vector<std::string> SplitLine(const std::string& line);

// `word` so that SplitLine gives it back as one.
std::string QuoteWord(const std::string& word);

// What can stand in the place of the last, unfinished word of `line`: verbs in front, names of
// nodes and classes behind a verb.
std::vector<std::string> Completions(Session& session, const std::string& line);

struct ShellOptions {
  std::string script;  // native path; empty or "-": standard input
  bool keepGoing = false;
};

// Opens the database of `context` and works on it until quit or the end of input. Without a
// terminal a line that fails ends the work, and so does the end with unsaved changes: exit code 1.
// What was not saved is dropped then; the saved database stays as it is.
int OpenShell(const Context& context, const ShellOptions& options);

// An open shell, as the verbs see it.
struct Shell {
  Session& session;
  Context context;
  bool terminal = false;
  bool ended = false;  // by quit

  // Ends the shell; Failure, or a question on a terminal, where something is not saved.
  int Quit(bool discard);
  // Runs a line. A failure is shown behind `where`.
  int Run(const std::string& line, const std::string& where);
};

}  // namespace samplehost

#endif  // HOST_SHELL_H_
