// What the user may type, as CLI11 parses it: the verbs of the command line and of a session are
// declared once, and differ in whether they take the database's file.
#ifndef HOST_COMMAND_LINE_H_
#define HOST_COMMAND_LINE_H_

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "host/verbs.h"

namespace samplehost {

struct Shell;

// One line: the parsed arguments, and the verb that they chose.
struct CommandLine {
  Context context;
  std::function<int()> verb;
  Shell* shell = nullptr;  // the session that the line was typed in; null on the command line

  // `example` is what the user types on the command line behind the program's name.
  CLI::App* Add(CLI::App& app, const std::string& name, const std::string& description,
                const std::string& example);
  // As Add, for a verb that works on a database: an argument of the command line, given in a
  // session.
  CLI::App* AddOnDatabase(CLI::App& app, const std::string& name, const std::string& description,
                          const std::string& example);
  // As Add, for a verb of a session alone.
  CLI::App* AddInSession(CLI::App& app, const std::string& name, const std::string& description,
                         const std::string& example);

  void Chooses(CLI::App* command, std::function<int()> run) {
    command->callback([this, run = std::move(run)] { verb = run; });
  }
};

// What a verb's arguments are parsed into; lives as long as the verb's callback.
template <typename T>
std::shared_ptr<T> Arguments() {
  return std::make_shared<T>();
}

// The verbs that the command line and a session share, and those of a session alone.
void AddSharedVerbs(CLI::App& app, CommandLine& line);
void AddSessionVerbs(CLI::App& app, CommandLine& line);

// The first word of a line that was refused because it is no verb; empty where it was refused for
// something else. The parser alone would say only that a verb is missing.
std::string UnknownVerb(const CLI::App& app);

// Runs the chosen verb. A failure is shown on `err`, behind `where`, and becomes an exit code.
int RunVerb(const CommandLine& line, const std::string& where);

}  // namespace samplehost

#endif  // HOST_COMMAND_LINE_H_
