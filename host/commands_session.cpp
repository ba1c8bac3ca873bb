// What the user may type in a session alone.
#include "host/command_line.h"
#include "host/session_verbs.h"
#include "host/shell.h"

namespace samplehost {

namespace {

using NodeVerb = int (*)(const Context&, const std::string&);
using PlainVerb = int (*)(const Context&);

void AddPlain(CLI::App& app, CommandLine& line, const std::string& name,
              const std::string& description, PlainVerb verb) {
  CLI::App* command = line.AddInSession(app, name, description, name);
  line.Chooses(command, [&line, verb] { return verb(line.context); });
}

void AddOnNode(CLI::App& app, CommandLine& line, const std::string& name,
               const std::string& description, NodeVerb verb) {
  CLI::App* command = line.AddInSession(app, name, description, name + " kick");
  const auto node = Arguments<std::string>();
  command->add_option("NODE", *node, "the node")->required();
  line.Chooses(command, [&line, node, verb] { return verb(line.context, *node); });
}

// A verb of a node and one more word.
void AddOnTwo(CLI::App& app, CommandLine& line, const std::string& name,
              const std::string& description, const std::string& second, const std::string& example,
              int (*verb)(const Context&, const std::string&, const std::string&)) {
  CLI::App* command = line.AddInSession(app, name, description, example);
  const auto words = Arguments<std::pair<std::string, std::string>>();
  command->add_option("NODE", words->first, "the node")->required();
  command->add_option(second, words->second)->required();
  line.Chooses(command,
               [&line, words, verb] { return verb(line.context, words->first, words->second); });
}

void AddCheckOut(CLI::App& app, CommandLine& line) {
  CLI::App* command = line.AddInSession(
      app, "checkout", "Copy a node's sounds to a folder for editing, and lock its samples.",
      "checkout kick /tmp/edit");
  const auto words = Arguments<FileArguments>();
  command->add_option("NODE", words->node, "the node")->required();
  command->add_option("FOLDER", words->file, "an existing folder")->required();
  command->add_flag("--force", words->force, "replace other sounds of these names there");
  line.Chooses(command, [&line, words] {
    return CheckOut(line.context, words->node, words->file, words->force);
  });
}

void AddCheckIn(CLI::App& app, CommandLine& line) {
  CLI::App* command = line.AddInSession(
      app, "checkin", "Take the edited sounds of a checked-out node back.", "checkin kick");
  const auto node = Arguments<std::string>();
  const auto folder = Arguments<std::optional<std::string>>();
  command->add_option("NODE", *node, "the node")->required();
  command->add_option("FOLDER", *folder, "another folder than they went to");
  line.Chooses(command, [&line, node, folder] { return CheckIn(line.context, *node, *folder); });
}

void AddUndoCheckIn(CLI::App& app, CommandLine& line) {
  CLI::App* command = line.AddInSession(
      app, "undo-checkin", "Go back to the sounds from before the last check-in of a node.",
      "undo-checkin kick");
  const auto words = Arguments<FileArguments>();
  command->add_option("NODE", words->node, "the node")->required();
  command->add_flag("--force", words->force, "also where the node has changed since");
  line.Chooses(command,
               [&line, words] { return UndoCheckIn(line.context, words->node, words->force); });
}

void AddNodeFiles(CLI::App& app, CommandLine& line) {
  const auto save = Arguments<FileArguments>();
  CLI::App* command = line.AddInSession(
      app, "save-node", "Save the database, and a node to a file that names its sounds.",
      "save-node kick kick.node");
  command->add_option("NODE", save->node, "the node")->required();
  command->add_option("FILE", save->file, "the file")->required();
  command->add_flag("--force", save->force, "replace the file if it exists");
  line.Chooses(command, [&line, save] { return SaveNode(line.context, *save); });

  const auto load = Arguments<FileArguments>();
  command = line.AddInSession(app, "load-node",
                              "Put the node of a file in the place of a node, or make it.",
                              "load-node kick kick.node --from ../other/game.db");
  command->add_option("NODE", load->node, "the node")->required();
  command->add_option("FILE", load->file, "what save-node wrote")->required();
  command->add_option("--from", load->from, "the database that saved it; without this, this one");
  line.Chooses(command, [&line, load] { return LoadNode(line.context, *load); });
}

void AddSetupFiles(CLI::App& app, CommandLine& line) {
  const auto words = Arguments<FileArguments>();
  CLI::App* command =
      line.AddInSession(app, "save-setup", "Save the database, and its classes to a file.",
                        "save-setup classes.node");
  command->add_option("FILE", words->file, "the file")->required();
  command->add_flag("--force", words->force, "replace the file if it exists");
  line.Chooses(command, [&line, words] { return SaveSetup(line.context, *words); });
  command = line.AddInSession(app, "load-setup", "Take the classes and the folder of a file.",
                              "load-setup classes.node");
  command->add_option("FILE", words->file, "what save-setup wrote")->required();
  line.Chooses(command, [&line, words] { return LoadSetup(line.context, *words); });
}

void AddEnd(CLI::App& app, CommandLine& line) {
  const auto discard = Arguments<bool>();
  CLI::App* command = line.AddInSession(app, "quit", "End the session.", "quit --discard");
  command->add_flag("--discard", *discard, "drop what is not saved");
  line.Chooses(command, [&line, discard] { return line.shell->Quit(*discard); });
  const auto verb = Arguments<std::string>();
  command = line.AddInSession(app, "help", "Show the verbs, or one with its example.", "help copy");
  command->add_option("VERB", *verb, "the verb");
  line.Chooses(command, [&app, &line, verb] {
    line.context.out << (verb->empty() ? &app : app.get_subcommand(*verb))->help();
    return kAllWell;
  });
}

}  // namespace

void AddSessionVerbs(CLI::App& app, CommandLine& line) {
  AddPlain(app, line, "undo", "Take the last step back.", Undo);
  AddPlain(app, line, "history", "List what undo can take back, the newest first.", History);
  AddPlain(app, line, "save", "Save all changes.", Save);
  AddPlain(app, line, "status", "Show what is checked out, and whether all is saved.", Status);
  AddOnTwo(app, line, "copy", "Copy a node with its sounds.", "NEW", "copy kick kick2", Copy);
  AddOnTwo(app, line, "rename", "Give a node another name.", "NEW", "rename kick thump", Rename);
  AddOnTwo(app, line, "select", "Choose the class that stands for a node.", "CLASS",
           "select kick High", Select);
  AddOnNode(app, line, "delete", "Remove a node.",
            [](const Context& context, const std::string& node) {
              return Remove(context, node, std::nullopt);
            });
  AddCheckOut(app, line);
  AddCheckIn(app, line);
  AddUndoCheckIn(app, line);
  AddOnNode(app, line, "undo-checkout", "End a check-out; the files outside stay.", UndoCheckOut);
  AddOnNode(app, line, "redo-checkout", "Check out again over the files outside.", RedoCheckOut);
  AddNodeFiles(app, line);
  AddSetupFiles(app, line);
  AddEnd(app, line);
}

}  // namespace samplehost
