#include "host/shell.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "host/command_line.h"
#include "host/failure.h"
#include "host/paths.h"
#include "host/prompt.h"
#include "host/report.h"

namespace samplehost {

namespace {

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r';
}

// Splits a line as far as it goes; `open` tells whether a quote was not closed, and `inWord`
// whether the last word can still grow.
std::vector<std::string> Split(const std::string& line, bool& open, bool& inWord) {
  std::vector<std::string> words;
  char quote = 0;
  inWord = false;
  for (const char c : line) {
    if (quote == 0 && IsBlank(c)) {
      inWord = false;
      continue;
    }
    if (quote == 0 && c == '#' && !inWord) break;
    if (!inWord) words.emplace_back();
    inWord = true;
    if (quote == 0 && (c == '"' || c == '\'')) {
      quote = c;
    } else if (c == quote) {
      quote = 0;
    } else {
      words.back().push_back(c);
    }
  }
  open = quote != 0;
  return words;
}

std::vector<std::string> VerbNames() {
  static const std::vector<std::string> names = [] {
    CLI::App app;
    CommandLine line;
    AddSharedVerbs(app, line);
    AddSessionVerbs(app, line);
    std::vector<std::string> all;
    for (const CLI::App* verb : app.get_subcommands([](const CLI::App*) { return true; }))
      all.push_back(verb->get_name());
    std::sort(all.begin(), all.end());
    return all;
  }();
  return names;
}

// One answer from the terminal, byte by byte: what was typed ahead stays for the prompt.
bool Ask(const Context& context, const std::string& question) {
  context.err << question << " [y/N] " << std::flush;
  std::string answer;
  char c = 0;
  while (::read(STDIN_FILENO, &c, 1) == 1 && c != '\n')
    answer.push_back(c);
  return answer == "y" || answer == "Y" || answer == "yes";
}

bool AnyCheckedOut(Session& session) {
  const auto& samples = session.root().samples();
  return std::any_of(samples.begin(), samples.end(), [](const auto& node) {
    return !node->damaged() && node->sample().IsCheckedOut();
  });
}

int WorkAtPrompt(Shell& shell) {
  Prompt prompt([&](const std::string& line) { return Completions(shell.session, line); });
  bool atEnd = false;
  while (!shell.ended) {
    const std::optional<std::string> line = prompt.Read();
    if (!line && atEnd) return kSomeFailed;  // the terminal is gone: nobody answers
    atEnd = !line;
    if (atEnd) shell.context.err << '\n';
    shell.Run(line.value_or("quit"), "samplehost");
  }
  return kAllWell;
}

int WorkThrough(Shell& shell, std::istream& input, const std::string& name, bool keepGoing) {
  int result = kAllWell;
  std::string line;
  for (int number = 1; !shell.ended && std::getline(input, line); ++number) {
    const std::string where = fmt::format("{}:{}", name, number);
    if (shell.Run(line, where) == kAllWell) continue;
    result = kSomeFailed;
    shell.context.err << where << (keepGoing ? ": failed; going on\n" : ": stopped here\n");
    if (!keepGoing) break;
  }
  if (shell.ended || !shell.session.root().changed()) return result;
  shell.context.err << name
                    << ": what was not saved is dropped; the saved database is as it was.\n"
                       "  End with \"save\", or with \"quit --discard\" where that is meant.\n";
  return kSomeFailed;
}

}  // namespace

std::vector<std::string> SplitLine(const std::string& line) {
  bool open = false;
  bool inWord = false;
  std::vector<std::string> words = Split(line, open, inWord);
  if (open) throw UsageFailure("A quote is not closed.");
  return words;
}

std::string QuoteWord(const std::string& word) {
  if (!word.empty() && word.find_first_of(" \t\"'#") == std::string::npos) return word;
  const char quote = word.find('"') == std::string::npos ? '"' : '\'';
  return quote + word + quote;
}

std::vector<std::string> Completions(Session& session, const std::string& line) {
  bool open = false;
  bool inWord = false;
  std::vector<std::string> words = Split(line, open, inWord);
  if (!inWord) words.emplace_back();
  const std::string start = LowerCase(words.back());
  std::vector<std::string> candidates;
  if (words.size() == 1) {
    candidates = VerbNames();
  } else {
    for (const auto& node : session.root().samples())
      candidates.push_back(node->name());
    for (const qz::string& name : session.setup().EnumerateQualityClasses())
      candidates.push_back(Narrow(name));
  }
  std::erase_if(candidates,
                [&](const std::string& name) { return !LowerCase(name).starts_with(start); });
  return candidates;
}

int Shell::Quit(bool discard) {
  if (session.root().changed() && !discard) {
    if (!terminal) throw Failure("There are unsaved changes.", "save, or quit --discard");
    if (!Ask(context, "There are unsaved changes. Drop them?")) return kAllWell;
  }
  if (AnyCheckedOut(session)) {
    if (terminal && !Ask(context, "A check-out ends with the session. Quit all the same?")) {
      return kAllWell;
    }
    context.err << "note: the files of check-outs stay where they are.\n";
  }
  ended = true;
  return kAllWell;
}

int Shell::Run(const std::string& typed, const std::string& where) {
  CommandLine line{{context.libraryPath, context.database, context.out, context.err,
                    context.progress, &session, nullptr, context.sync},
                   {},
                   this};
  CLI::App app("The verbs of a session. \"help VERB\" shows an example.", "");
  app.require_subcommand(1);
  app.set_help_flag();
  AddSharedVerbs(app, line);
  AddSessionVerbs(app, line);
  try {
    std::vector<std::string> words = SplitLine(typed);
    if (words.empty()) return kAllWell;
    std::reverse(words.begin(), words.end());  // as the parser wants them
    app.parse(words);
  } catch (const CLI::Success& help) {
    return app.exit(help, context.out, context.err);
  } catch (const CLI::ParseError& error) {
    const std::string unknown = UnknownVerb(app);
    context.err << where << ": "
                << (unknown.empty() ? error.what()
                                    : fmt::format("There is no verb \"{}\".", unknown))
                << '\n';
    return kUsage;
  } catch (const Failure& failure) {
    context.err << where << ": " << failure.what() << '\n';
    return kUsage;
  }
  const int code = RunVerb(line, where);
  context.out.flush();
  return code;
}

int OpenShell(const Context& context, const ShellOptions& options) {
  const bool fromInput = options.script.empty() || options.script == "-";
  std::ifstream file;
  if (!fromInput) {
    file.open(options.script);
    if (!file) throw Failure(fmt::format("\"{}\" cannot be read.", options.script));
  }
  Session& session = Open(context);
  WarnOfDamage(context, session);
  Shell shell{session,
              {context.libraryPath, context.database, context.out, context.err, context.progress,
               &session, nullptr, context.sync}};
  shell.terminal = options.script.empty() && ::isatty(STDIN_FILENO) != 0;
  if (shell.terminal) {
    return WorkAtPrompt(shell);
  }
  return WorkThrough(shell, fromInput ? std::cin : file, fromInput ? "stdin" : options.script,
                     options.keepGoing);
}

}  // namespace samplehost
