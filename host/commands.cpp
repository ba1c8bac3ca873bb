#include "host/commands.h"

#include <fmt/format.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/clean.h"
#include "host/command_line.h"
#include "host/failure.h"
#include "host/import_jobs.h"
#include "host/library.h"
#include "host/shell.h"
#include "host/verbs.h"
#include "host/verify.h"

namespace samplehost {

namespace {

void AddNew(CLI::App& app, CommandLine& line) {
  CLI::App* command =
      line.AddOnDatabase(app, "new", "Make a new database and the folder for its samples.",
                         "new game.db --class High=100 --class Low=10 --default-type compressed");
  const auto arguments = Arguments<NewArguments>();
  command->add_option("--folder", arguments->folder,
                      "folder for the samples, relative to the database's (samples)");
  command->add_option("--class", arguments->classes, "NAME=LEVEL: a quality class; may be repeated")
      ->allow_extra_args(false);
  command
      ->add_option("--default-type", arguments->defaultType,
                   "raw (PCM16) or compressed (ADPCM): the type that --only-default gives")
      ->check(CLI::IsMember({"raw", "compressed"}));
  command->add_flag("--only-default", arguments->onlyDefault,
                    "new samples take the default type, whatever --format says");
  line.Chooses(command, [&line, arguments] { return New(line.context, *arguments); });
}

void AddClassVerbs(CLI::App& app, CommandLine& line) {
  CLI::App* command = line.AddOnDatabase(app, "class", "Add, remove or list quality classes.",
                                         "class game.db add Medium=50\n"
                                         "  samplehost class game.db remove Medium\n"
                                         "  samplehost class game.db list");
  command->require_subcommand(1);
  const auto names = Arguments<std::vector<std::string>>();
  CLI::App* add = command->add_subcommand("add", "Add classes.");
  add->add_option("NAME=LEVEL", *names, "name, and level from 0 to 255")->required();
  line.Chooses(add, [&line, names] { return AddClasses(line.context, *names); });
  CLI::App* remove = command->add_subcommand("remove", "Remove classes that no sample uses.");
  remove->add_option("NAME", *names, "the class")->required();
  line.Chooses(remove, [&line, names] { return RemoveClasses(line.context, *names); });
  CLI::App* list = command->add_subcommand("list", "List the classes by ascending level.");
  line.Chooses(list, [&line] { return ListClasses(line.context); });
}

void AddFolder(CLI::App& app, CommandLine& line) {
  CLI::App* command = line.AddOnDatabase(
      app, "folder", "Show the folder for new samples, or set it. Samples that are there stay.",
      "folder game.db sounds");
  const auto folder = Arguments<std::optional<std::string>>();
  command->add_option("PATH", *folder, "the new folder, relative to the database's");
  line.Chooses(command, [&line, folder] { return Folder(line.context, *folder); });
}

void AddLock(CLI::App& app, CommandLine& line, bool locks) {
  const std::string name = locks ? "lock" : "unlock";
  CLI::App* command = line.AddOnDatabase(
      app, name, locks ? "Keep a node from changing." : "Let a locked node change again.",
      name + " game.db kick");
  const auto node = Arguments<std::string>();
  command->add_option("NODE", *node, "the node")->required();
  line.Chooses(command, [&line, node, locks] { return SetLock(line.context, *node, locks); });
}

void AddImport(CLI::App& app, CommandLine& line) {
  CLI::App* command =
      line.AddOnDatabase(app, "import", "Import sound files, a new node for each, and save.",
                         "import game.db kick.wav drums/ -r --class High --format ADPCM");
  const auto arguments = Arguments<ImportArguments>();
  command->add_option("FILE", arguments->files, "sound files, or folders of them")->required();
  command->add_option("--class", arguments->qualityClass, "the quality class")->required();
  command
      ->add_option("--format", arguments->format, "default, PCM16, ADPCM, ADPCM+, PCM8 or ADPCMVS")
      ->required();
  command->add_option("--node", arguments->node,
                      "the node for a single file; one that exists gets a further class");
  command->add_flag("-r,--recursive", arguments->recursive, "look into the folders of folders");
  command
      ->add_option("-j,--jobs", arguments->jobs,
                   "import this many files at a time, in processes of their own; the nodes are the "
                   "same, in the same order")
      ->check(CLI::Range(1u, kMostJobs));
  line.Chooses(command, [&line, arguments] { return Import(line.context, *arguments); });
}

void AddList(CLI::App& app, CommandLine& line) {
  CLI::App* command =
      line.AddOnDatabase(app, "list", "List all nodes with their samples.", "list game.db --snr");
  const auto json = Arguments<bool>();
  const auto withNoise = Arguments<bool>();
  command->add_flag("--json", *json, "as JSON");
  command->add_flag("--snr", *withNoise, "with the signal-to-noise ratio of what is decoded");
  line.Chooses(command, [&line, json, withNoise] { return List(line.context, *json, *withNoise); });
}

void AddInfo(CLI::App& app, CommandLine& line) {
  CLI::App* command = line.Add(
      app, "info",
      "Show all of a node: numbers, loop, sizes, and how near its sound is to the raw. Or, "
      "with a sound file alone, what it holds and why it would be refused.",
      "info game.db kick\n"
      "  samplehost info kick.wav");
  const auto node = Arguments<std::optional<std::string>>();
  const auto json = Arguments<bool>();
  if (line.shell == nullptr) {
    command->add_option("DB", line.context.database, "the database file, or a sound file")
        ->required();
  }
  command->add_option("NODE", *node, "the node")->required(line.shell != nullptr);
  command->add_flag("--json", *json, "as JSON");
  line.Chooses(command, [&line, node, json] {
    if (*node) return Info(line.context, **node, *json);
    return SoundFileInfo(line.context, line.context.database, *json);
  });
}

void AddConvert(CLI::App& app, CommandLine& line) {
  CLI::App* command = line.Add(app, "convert", "Turn a sound file into WAV, or into MORT.",
                               "convert kick.wav kick.mort --codec gb");
  const auto arguments = Arguments<ConvertArguments>();
  command->add_option("IN", arguments->source, "a WAV, AIFF or MORT file")->required();
  command->add_option("OUT", arguments->target, "the new file, .wav or .mort")->required();
  command
      ->add_option("--codec", arguments->codec,
                   "of a .mort file: gsm (speech, the default) or gb (4 bits per sample)")
      ->check(CLI::IsMember({"gsm", "gb"}));
  command->add_flag("--force", arguments->force, "replace the file if it exists");
  line.Chooses(command, [&line, arguments] { return Convert(line.context, *arguments); });
}

void AddExport(CLI::App& app, CommandLine& line) {
  CLI::App* command = line.AddOnDatabase(
      app, "export", "Write a sample to a file: raw and decoded as WAV, extra data as JSON.",
      "export game.db kick --class High --as decoded kick-decoded.wav");
  const auto arguments = Arguments<ExportArguments>();
  const std::map<std::string, ExportAs> kinds = {{"raw", ExportAs::kRaw},
                                                 {"decoded", ExportAs::kDecoded},
                                                 {"encoded", ExportAs::kEncoded},
                                                 {"extra", ExportAs::kExtra}};
  command->add_option("NODE", arguments->node, "the node")->required();
  command
      ->add_option("OUT", arguments->target,
                   "the file; encoded channels of several get .chN in front of its extension")
      ->required();
  command->add_option("--class", arguments->qualityClass, "the quality class")->required();
  command->add_option("--as", arguments->as, "raw, decoded, encoded or extra")
      ->required()
      ->transform(CLI::CheckedTransformer(kinds));
  command->add_option("--channel", arguments->channel,
                      "this channel alone, from 0 (encoded and extra)");
  command->add_flag("--force", arguments->force, "replace the file if it exists");
  line.Chooses(command, [&line, arguments] { return Export(line.context, *arguments); });
}

struct SampleArguments {
  std::string node;
  std::string qualityClass;
  std::string format;
};

void AddFormat(CLI::App& app, CommandLine& line) {
  CLI::App* command = line.AddOnDatabase(app, "format", "Encode a sample in another format.",
                                         "format game.db kick High ADPCM+");
  const auto arguments = Arguments<SampleArguments>();
  command->add_option("NODE", arguments->node, "the node")->required();
  command->add_option("CLASS", arguments->qualityClass, "the quality class")->required();
  command->add_option("FORMAT", arguments->format, "default, PCM16, ADPCM, ADPCM+, PCM8 or ADPCMVS")
      ->required();
  line.Chooses(command, [&line, arguments] {
    return Format(line.context, arguments->node, arguments->qualityClass, arguments->format);
  });
}

void AddRemove(CLI::App& app, CommandLine& line) {
  CLI::App* command = line.AddOnDatabase(app, "remove", "Remove a node, or one sample of it.",
                                         "remove game.db kick Low");
  const auto node = Arguments<std::string>();
  const auto qualityClass = Arguments<std::optional<std::string>>();
  command->add_option("NODE", *node, "the node")->required();
  command->add_option("CLASS", *qualityClass, "the class of the one sample to remove");
  line.Chooses(command,
               [&line, node, qualityClass] { return Remove(line.context, *node, *qualityClass); });
}

void AddEdit(CLI::App& app, CommandLine& line) {
  CLI::App* command = line.AddOnDatabase(
      app, "edit",
      "Run a program on each sound of a node, its file behind the last word, and take what it "
      "changed. Where it fails nothing is taken.",
      "edit game.db kick -- sh louder.sh");
  const auto node = Arguments<std::string>();
  const auto words = Arguments<std::vector<std::string>>();
  command->add_option("NODE", *node, "the node")->required();
  command->add_option("COMMAND", *words, "the program and its arguments, behind --")->required();
  line.Chooses(command, [&line, node, words] { return Edit(line.context, *node, *words); });
}

void AddDump(CLI::App& app, CommandLine& line) {
  CLI::App* command =
      line.Add(app, "dump", "Show an .esmp, node or WAV file field by field with offsets.",
               "dump samples/0c76086b-8b15-407d-8230-f91c0ef85cb0/High.esmp");
  const auto file = Arguments<std::string>();
  command->add_option("FILE", *file, "the file")->required();
  line.Chooses(command, [&line, file] { return Dump(line.context, *file); });
}

void AddOpen(CLI::App& app, CommandLine& line) {
  CLI::App* command = line.AddOnDatabase(
      app, "open", "Work on a database line by line: at a prompt, or from a script.",
      "open game.db --script nightly.txt");
  const auto options = Arguments<ShellOptions>();
  command->add_option("--script", options->script, "the lines of this file; - or none: of stdin");
  command->add_flag("--keep-going", options->keepGoing, "go on behind a line that failed");
  line.Chooses(command, [&line, options] { return OpenShell(line.context, *options); });
}

void AddVerify(CLI::App& app, CommandLine& line) {
  CLI::App* command = line.AddOnDatabase(
      app, "verify", "Check every file of the saved samples, and the encoded ones frame by frame.",
      "verify game.db --repair");
  const auto options = Arguments<VerifyOptions>();
  command->add_flag("--repair", options->repair,
                    "make encoded files anew where they are missing, damaged or odd");
  command->add_flag("--json", options->json, "as JSON");
  line.Chooses(command, [&line, options] { return Verify(line.context, *options); });
}

void AddClean(CLI::App& app, CommandLine& line) {
  CLI::App* command = line.AddOnDatabase(
      app, "clean", "Move folders that no node names out of the sample folder, to \"orphans\".",
      "clean game.db --dry-run");
  const auto dryRun = Arguments<bool>();
  command->add_flag("--dry-run", *dryRun, "only list them");
  line.Chooses(command, [&line, dryRun] { return Clean(line.context, *dryRun); });
}

}  // namespace

// --- Shared with sessions ---

CLI::App* CommandLine::Add(CLI::App& app, const std::string& name, const std::string& description,
                           const std::string& example) {
  CLI::App* command = app.add_subcommand(name, description);
  command->footer("Example:\n  samplehost " + example);
  return command;
}

CLI::App* CommandLine::AddOnDatabase(CLI::App& app, const std::string& name,
                                     const std::string& description, const std::string& example) {
  if (shell != nullptr) {
    // The examples name the same database everywhere, which is open here.
    std::string typed = example;
    for (const std::string word : {"samplehost ", " game.db"}) {
      for (std::size_t at = 0; (at = typed.find(word)) != std::string::npos;)
        typed.erase(at, word.size());
    }
    return AddInSession(app, name, description, typed);
  }
  CLI::App* command = Add(app, name, description, example);
  command->add_option("DB", context.database, "the database file")->required();
  return command;
}

CLI::App* CommandLine::AddInSession(CLI::App& app, const std::string& name,
                                    const std::string& description, const std::string& example) {
  CLI::App* command = app.add_subcommand(name, description);
  command->footer("Example:\n  " + example);
  return command;
}

void AddSharedVerbs(CLI::App& app, CommandLine& line) {
  AddClassVerbs(app, line);
  AddFolder(app, line);
  AddLock(app, line, true);
  AddLock(app, line, false);
  AddImport(app, line);
  AddList(app, line);
  AddInfo(app, line);
  AddExport(app, line);
  AddFormat(app, line);
  AddRemove(app, line);
  AddConvert(app, line);
  AddEdit(app, line);
  AddDump(app, line);
}

namespace {

int Report(std::ostream& err, const std::string& where, const Failure& failure, int code) {
  err << where << ": " << failure.what() << '\n';
  if (!failure.advice().empty()) err << "  " << failure.advice() << '\n';
  return code;
}

}  // namespace

int RunVerb(const CommandLine& line, const std::string& where) {
  std::ostream& out = line.context.out;
  std::ostream& err = line.context.err;
  try {
    const int code = line.verb();
    out.flush();
    if (out) return code;
    return Report(err, where, Failure("Standard output could not be written."), kSomeFailed);
  } catch (const UsageFailure& failure) {
    return Report(err, where, failure, kUsage);
  } catch (const Failure& failure) {
    return Report(err, where, failure, kSomeFailed);
  } catch (const std::bad_alloc&) {
    return Report(err, where, Failure("Out of memory."), kSomeFailed);
  } catch (const std::exception& error) {
    return Report(err, where, Failure(error.what()), kSomeFailed);
  }
}

std::string UnknownVerb(const CLI::App& app) {
  const std::vector<std::string> unknown = app.remaining();
  return app.get_subcommands().empty() && !unknown.empty() ? unknown.front() : "";
}

int RunCommandLine(int argc, char** argv) {
  CLI::App app("samplehost: a database of samples, and the formats they are encoded in.",
               "samplehost");
  app.require_subcommand(1);
  app.footer(
      "Exit codes: 0 all went well, 1 some failed, 2 usage. \"samplehost VERB --help\" shows "
      "an example.");
  CommandLine line;
  line.context.progress = ::isatty(STDERR_FILENO) != 0;
  app.add_option("--library", line.context.libraryPath,
                 "path of the SampleData library (SampleData.so beside this program)");
  app.add_flag("!--no-sync", line.context.sync,
               "do not wait for the disk when saving: faster, but a power cut may then cost files");
  AddNew(app, line);
  AddSharedVerbs(app, line);
  AddOpen(app, line);
  AddVerify(app, line);
  AddClean(app, line);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& help) {
    return app.exit(help);
  } catch (const CLI::ParseError& error) {
    const std::string unknown = UnknownVerb(app);
    if (unknown.empty()) {
      app.exit(error);
    } else {
      line.context.err << fmt::format(
          "samplehost: There is no verb \"{}\".\n  The verbs are listed by: samplehost --help\n",
          unknown);
    }
    return kUsage;
  }
  if (line.context.libraryPath.empty()) line.context.libraryPath = SampleLibrary::DefaultPath();
  return RunVerb(line, "samplehost");
}

}  // namespace samplehost
