#include "host/session_verbs.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "host/advice.h"
#include "host/failure.h"
#include "host/outside_files.h"
#include "host/paths.h"
#include "host/report.h"

namespace samplehost {

namespace {

void Check(const Node& node, SDAccessInterface::SDError error) {
  if (error == SDAccessInterface::ERROR_OK) return;
  throw Failure(fmt::format("Node \"{}\": {}.", node.name(), node.LastError()), AdviceFor(error));
}

void RequireUnlocked(const Node& node) {
  if (!node.row().locked) return;
  throw Failure(fmt::format("Node \"{}\" is locked.", node.name()),
                AdviceFor(SDAccessInterface::ERROR_READONLY));
}

// A name for a node that is to be; check-outs name files after nodes.
void RequireFree(Session& session, const std::string& name) {
  const std::string why = WhyNoFileName(name);
  if (!why.empty()) throw Failure(fmt::format("\"{}\" cannot be a name: {}.", name, why));
  if (session.root().Find(name) != nullptr) {
    throw Failure(fmt::format("There is a node \"{}\" already.", name));
  }
}

// The full path of an existing folder as the library takes it: without a separator at its end.
std::string ExistingFolder(const std::string& native) {
  std::error_code error;
  if (!std::filesystem::is_directory(native, error)) {
    throw Failure(fmt::format("There is no folder \"{}\".", native), "Make it first.");
  }
  std::string path = FullPath(native);
  while (path.ends_with('\\'))
    path.pop_back();
  return path;
}

}  // namespace

// --- Undo and saving ---

int Undo(const Context& context) {
  const std::string what = Open(context).Undo();
  context.out << "undone: " << Printable(what) << '\n';
  return kAllWell;
}

int History(const Context& context) {
  Table table({"STEP", "NODE", "WHAT"});
  std::size_t number = Open(context).root().undo().size();
  // The newest first: it is what undo takes.
  const auto& steps = Open(context).root().undo().steps();
  for (auto step = steps.rbegin(); step != steps.rend(); ++step) {
    table.Add({fmt::format("{}{}", number--, step->joined ? "+" : ""), step->nodeName,
               Narrow(step->record.description)});
  }
  if (!table.empty()) table.Print(context.out);
  return kAllWell;
}

int Save(const Context& context) {
  Open(context).Save();
  return kAllWell;
}

// --- Nodes ---

int Copy(const Context& context, const std::string& node, const std::string& name) {
  Session& session = Open(context);
  Node& source = session.RequireHealthy(node);
  RequireFree(session, name);
  session.CopyNode(source, name);
  Finish(context, session);
  return kAllWell;
}

int Rename(const Context& context, const std::string& name, const std::string& newName) {
  Session& session = Open(context);
  Node& node = session.Require(name);
  RequireUnlocked(node);
  // A change of case alone is no clash.
  if (!SameText(node.name(), newName)) RequireFree(session, newName);
  if (!node.damaged() && !node.GetTypeInterface()->Rename(&node, node.name().c_str())) {
    throw Failure(fmt::format("Node \"{}\" is checked out.", node.name()),
                  AdviceFor(SDAccessInterface::ERROR_ISCHECKEDOUT));
  }
  session.root().Rename(node, newName);
  Finish(context, session);
  return kAllWell;
}

int Select(const Context& context, const std::string& name, const std::string& qualityClass) {
  Session& session = Open(context);
  Node& node = session.RequireHealthy(name);
  if (!node.sample().SetSelQualityClass(qualityClass.c_str())) {
    qz::ulong code = 0;
    node.LastError(code);
    Check(node, static_cast<SDAccessInterface::SDError>(code));
  }
  Finish(context, session);
  return kAllWell;
}

// --- Check-out ---

int CheckOut(const Context& context, const std::string& name, const std::string& folder,
             bool force) {
  Session& session = Open(context);
  Node& node = session.RequireHealthy(name);
  if (node.sample().IsCheckedOut()) Check(node, node.sample().CheckOut(""));
  const std::string why = WhyNoFileName(node.name());
  if (!why.empty()) {
    throw Failure(fmt::format("No file can be named \"{}\": {}.", node.name(), why),
                  "Rename the node first.");
  }
  const std::string path = ExistingFolder(folder);
  for (const OutsideFile& file : OutsideFiles(session, node, folder)) {
    if (force || !file.IsThere() || SameBytes(file.inside, file.outside)) continue;
    throw Failure(fmt::format("\"{}\" is there and is another sound.", file.outside),
                  "Move it away, or --force to replace it.");
  }
  Check(node, node.sample().CheckOut(path.c_str()));
  node.checkOutFolder = NativePath(path);
  for (const OutsideFile& file : OutsideFiles(session, node, node.checkOutFolder))
    context.out << Printable(file.outside) << '\n';
  return kAllWell;
}

int CheckIn(const Context& context, const std::string& name,
            const std::optional<std::string>& folder) {
  Session& session = Open(context);
  Node& node = session.RequireHealthy(name);
  SDTarvaneAccessInterface& sample = node.sample();
  Check(node, folder ? sample.CheckIn(ExistingFolder(*folder).c_str()) : sample.CheckIn());
  node.checkInOvertaken = false;
  Finish(context, session);
  return kAllWell;
}

int UndoCheckOut(const Context& context, const std::string& name) {
  Node& node = Open(context).RequireHealthy(name);
  Check(node, node.sample().UndoCheckOut());
  return kAllWell;
}

int RedoCheckOut(const Context& context, const std::string& name) {
  Node& node = Open(context).RequireHealthy(name);
  Check(node, node.sample().RedoCheckOut());
  return kAllWell;
}

int UndoCheckIn(const Context& context, const std::string& name, bool force) {
  Session& session = Open(context);
  Node& node = session.RequireHealthy(name);
  session.RequireWholeSave();
  RequireUnlocked(node);
  const bool possible = node.sample().CanUndoCheckIn() && !node.sample().IsCheckedOut();
  if (possible && node.checkInOvertaken) {
    const std::string warning = fmt::format(
        "Node \"{}\" has changed since its check-in; going back behind that loses the changes, and "
        "classes that came since lose their files.",
        node.name());
    if (!force) throw Failure(warning, "undo takes the changes back first; --force goes ahead.");
    context.err << "warning: " << warning << '\n';
  }
  if (possible) session.root().set_changed(true);
  Check(node, node.sample().UndoCheckIn());
  node.checkInOvertaken = true;
  Finish(context, session);
  return kAllWell;
}

int Status(const Context& context) {
  Session& session = Open(context);
  Table table({"NODE", "CLASS", "STATE", "FILE"});
  for (const auto& node : session.root().samples()) {
    if (node->damaged() || !node->sample().IsCheckedOut()) continue;
    const std::vector<OutsideFile> files = OutsideFiles(session, *node, node->checkOutFolder);
    if (files.empty()) table.Add({node->name(), "-", "no samples", node->checkOutFolder});
    for (const OutsideFile& file : files) {
      const char* const state = !file.IsThere()                        ? "missing"
                                : SameBytes(file.inside, file.outside) ? "unchanged"
                                                                       : "changed";
      table.Add({node->name(), file.qualityClass, state, file.outside});
    }
  }
  if (table.empty()) {
    context.out << "nothing is checked out\n";
  } else {
    table.Print(context.out);
  }
  context.out << (session.root().changed() ? "unsaved changes\n" : "all is saved\n");
  return kAllWell;
}

// --- Node files ---

int SaveNode(const Context& context, const FileArguments& arguments) {
  Session& session = Open(context);
  Node& node = session.RequireHealthy(arguments.node);
  session.SaveNodeFile(node, FullPath(arguments.file), arguments.force);
  return kAllWell;
}

int LoadNode(const Context& context, const FileArguments& arguments) {
  Session& session = Open(context);
  if (session.root().Find(arguments.node) != nullptr) {
    Node& node = session.RequireHealthy(arguments.node);
    RequireUnlocked(node);
    if (node.sample().IsCheckedOut()) Check(node, node.sample().CheckOut(""));
  } else {
    RequireFree(session, arguments.node);
  }
  const std::string from = arguments.from.empty() ? std::string() : FullPath(arguments.from);
  session.LoadNodeFile(arguments.node, FullPath(arguments.file), from);
  Finish(context, session);
  return kAllWell;
}

int SaveSetup(const Context& context, const FileArguments& arguments) {
  Open(context).SaveSetupFile(FullPath(arguments.file), arguments.force);
  return kAllWell;
}

int LoadSetup(const Context& context, const FileArguments& arguments) {
  Session& session = Open(context);
  for (const auto& node : session.root().samples()) {
    if (!node->damaged() && node->sample().IsCheckedOut()) {
      throw Failure(fmt::format("Node \"{}\" is checked out.", node->name()),
                    AdviceFor(SDAccessInterface::ERROR_ISCHECKEDOUT));
    }
  }
  for (const std::string& note : session.LoadSetupFile(FullPath(arguments.file)))
    context.err << "note: " << Printable(note) << '\n';
  context.err << "note: undo waits for the next save.\n";
  return kAllWell;
}

}  // namespace samplehost
