#include "host/verbs.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <csignal>

#include "host/advice.h"
#include "host/convert.h"
#include "host/dump.h"
#include "host/failure.h"
#include "host/import.h"
#include "host/paths.h"
#include "host/report.h"
#include "host/session.h"
#include "host/sound_info.h"

namespace samplehost {

namespace {

constexpr int kMaxLevel = 255;
constexpr std::size_t kBarWidth = 30;

std::pair<std::string, int> ParseClass(const std::string& text) {
  const std::size_t equals = text.rfind('=');
  const std::string number = equals == std::string::npos ? "" : text.substr(equals + 1);
  int level = -1;
  const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), level);
  if (error != std::errc() || end != number.data() + number.size() || level < 0 ||
      level > kMaxLevel) {
    throw UsageFailure(
        fmt::format("\"{}\" is no class: it has to be NAME=LEVEL with a level from "
                    "0 to {}, for instance High=100.",
                    text, kMaxLevel));
  }
  return {text.substr(0, equals), level};
}

qz::uchar FormatIndex(Session& session, const std::string& name) {
  qz::uchar index = 0;
  std::string known;
  for (const qz::string& format : session.setup().EnumerateSampleFormats()) {
    if (SameText(Narrow(format), name)) return index;
    known += (known.empty() ? "" : ", ") + Narrow(format);
    ++index;
  }
  throw UsageFailure(fmt::format("There is no format \"{}\".", name), "The formats are: " + known);
}

// A node's samples, with the noise of each where it is asked for. `allWell` becomes false for a
// damaged node, which has none, and where a sample cannot be decoded.
std::vector<InfoEntry> EntriesOf(Session& session, Node& node, bool withNoise, bool& allWell) {
  std::vector<InfoEntry> entries;
  if (node.damaged()) {
    allWell = false;
    return entries;
  }
  for (const SampleFacts& facts : AllFactsOf(session, node)) {
    InfoEntry& entry = entries.emplace_back(InfoEntry{facts, {}, {}});
    if (!withNoise) continue;
    try {
      entry.noise = NoiseOf(node, facts);
    } catch (const Failure& failure) {
      entry.problem = failure.what();
      allWell = false;
    }
  }
  return entries;
}

Failure FailureOf(const Node& node, SDAccessInterface::SDError error) {
  return Failure(fmt::format("Node \"{}\": {}.", node.name(), node.LastError()), AdviceFor(error));
}

// --- Import: stopping, progress, table of failures ---

volatile std::sig_atomic_t stopAsked = 0;

void AskToStop(int) {
  stopAsked = 1;
  std::signal(SIGINT, SIG_DFL);  // a second one ends the program at once
}

void ShowProgress(const Context& context, std::size_t number, std::size_t count,
                  const std::string& file) {
  const std::size_t filled = kBarWidth * number / count;
  context.err << fmt::format("\r[{:<{}}] {}/{} {:.40}\x1b[K", std::string(filled, '#'), kBarWidth,
                             number, count,
                             Printable(NameOf("\\" + file.substr(file.rfind('/') + 1))))
              << std::flush;
}

void EndProgress(const Context& context) {
  context.err << "\r\x1b[K" << std::flush;
}

void ReportFailures(const Context& context, const ImportResult& result) {
  if (!result.failures.empty()) {
    context.err << fmt::format("{} of {} files failed:\n", result.failures.size(),
                               result.failures.size() + result.imported.size() + result.left);
    Table table({"FILE", "REASON", "WHAT TO DO"});
    for (const ImportFailure& failure : result.failures) {
      table.Add({failure.file, failure.reason, failure.advice});
    }
    table.Print(context.err);
  }
  if (result.left > 0) context.err << fmt::format("Stopped: {} files were left.\n", result.left);
}

void CheckImport(Session& session, const ImportArguments& arguments, std::size_t numFiles) {
  if (!session.setup().ProbeQualityClass(arguments.qualityClass.c_str())) {
    throw Failure(fmt::format("Quality class \"{}\" does not exist.", arguments.qualityClass),
                  AdviceFor(SDAccessInterface::ERROR_UNKNOWNCLASS));
  }
  if (numFiles == 0)
    throw Failure("There is no sound file to import.", "Look into folders with -r.");
  if (!arguments.node.empty() && numFiles != 1) {
    throw UsageFailure("--node takes one file.");
  }
}

}  // namespace

Session& Open(const Context& context) {
  if (context.session != nullptr) return *context.session;
  context.opened = std::make_unique<Session>(context.libraryPath, FullPath(context.database));
  context.opened->set_durable(context.sync);
  return *context.opened;
}

void WarnOfDamage(const Context& context, Session& session) {
  for (const auto& node : session.root().samples()) {
    if (!node->damaged()) continue;
    context.err << fmt::format("warning: node \"{}\" is damaged and kept as it is: {}\n",
                               Printable(node->name()), node->damage());
  }
}

void Finish(const Context& context, Session& session) {
  session.root().set_changed(true);
  if (context.session == nullptr) session.Save();
}

int New(const Context& context, const NewArguments& arguments) {
  NewDatabase wanted;
  wanted.path = FullPath(context.database);
  wanted.folder = arguments.folder;
  for (const std::string& text : arguments.classes)
    wanted.classes.push_back(ParseClass(text));
  if (arguments.defaultType == "raw") wanted.settings.defaultType = HDB_SAMPLETYPE_RAW;
  if (arguments.defaultType == "compressed") {
    wanted.settings.defaultType = HDB_SAMPLETYPE_COMPRESSED;
  }
  wanted.settings.onlyDefault = arguments.onlyDefault;
  Session::Create(context.libraryPath, wanted);
  if (wanted.classes.empty()) {
    context.err << "The database has no quality class yet: samplehost class DB add NAME=LEVEL\n";
  }
  return kAllWell;
}

int AddClasses(const Context& context, const std::vector<std::string>& classes) {
  std::vector<std::pair<std::string, int>> parsed;
  for (const std::string& text : classes)
    parsed.push_back(ParseClass(text));
  Session& session = Open(context);
  for (const auto& [name, level] : parsed)
    session.AddClass(name, level);
  Finish(context, session);
  return kAllWell;
}

int RemoveClasses(const Context& context, const std::vector<std::string>& names) {
  Session& session = Open(context);
  for (const std::string& name : names)
    session.RemoveClass(name);
  Finish(context, session);
  return kAllWell;
}

int ListClasses(const Context& context) {
  Session& session = Open(context);
  Table table({"CLASS", "LEVEL", "SAMPLES"});
  for (const qz::string& name : session.setup().EnumerateQualityClasses()) {
    // Levels from 128 on come out negative.
    const auto level = static_cast<qz::uchar>(session.setup().GetQualityClassLevel(name));
    table.Add({Narrow(name), fmt::format("{}", level),
               fmt::format("{}", session.root().CountOfClass(Narrow(name)))});
  }
  table.Print(context.out);
  return kAllWell;
}

int Folder(const Context& context, const std::optional<std::string>& folder) {
  Session& session = Open(context);
  if (folder) {
    session.SetSampleFolder(*folder);
    Finish(context, session);
  }
  context.out << NativePath(session.SampleFolder()) << '\n';
  return kAllWell;
}

int SetLock(const Context& context, const std::string& name, bool locked) {
  Session& session = Open(context);
  session.Require(name).set_locked(locked);
  Finish(context, session);
  return kAllWell;
}

int Import(const Context& context, const ImportArguments& arguments) {
  Session& session = Open(context);
  WarnOfDamage(context, session);
  const std::vector<std::string> files =
      CollectSoundFiles(arguments.files, arguments.recursive, NativePath(session.SampleFolder()));
  const ImportOptions options{arguments.qualityClass, FormatIndex(session, arguments.format),
                              arguments.node, arguments.jobs};
  CheckImport(session, arguments, files.size());
  if (session.root().settings().onlyDefault) {
    context.err << "note: this database takes its default type only; --format has no say.\n";
  }
  stopAsked = 0;
  const auto handler = std::signal(SIGINT, AskToStop);
  const ImportResult result = ImportFiles(
      session, files, options, [&](std::size_t number, std::size_t count, const std::string& file) {
        if (context.progress) ShowProgress(context, number, count, file);
        return stopAsked == 0;
      });
  std::signal(SIGINT, handler);
  if (context.progress) EndProgress(context);
  if (!result.imported.empty()) Finish(context, session);
  for (const Imported& imported : result.imported) {
    context.out << fmt::format("{}\t{}\n", Printable(imported.node), Printable(imported.file));
  }
  ReportFailures(context, result);
  return result.failures.empty() && result.left == 0 ? kAllWell : kSomeFailed;
}

int List(const Context& context, bool json, bool withNoise) {
  Session& session = Open(context);
  std::vector<NodeEntries> nodes;
  bool allWell = true;
  for (const auto& node : session.root().samples()) {
    nodes.push_back({node.get(), EntriesOf(session, *node, withNoise, allWell)});
  }
  if (json) {
    PrintListJson(session, nodes, withNoise, context.out);
  } else {
    PrintList(nodes, withNoise, context.out);
  }
  return allWell ? kAllWell : kSomeFailed;
}

int Info(const Context& context, const std::string& name, bool json) {
  Session& session = Open(context);
  Node& node = session.Require(name);
  bool allWell = true;
  const std::vector<InfoEntry> entries = EntriesOf(session, node, true, allWell);
  if (json) {
    PrintInfoJson(node, entries, context.out);
  } else {
    PrintInfo(node, entries, context.out);
  }
  return allWell ? kAllWell : kSomeFailed;
}

int Export(const Context& context, const ExportArguments& arguments) {
  if (arguments.channel && (arguments.as == ExportAs::kRaw || arguments.as == ExportAs::kDecoded)) {
    throw UsageFailure("--channel goes with --as encoded and --as extra.");
  }
  const ExportOptions options{arguments.as, FullPath(arguments.target), arguments.channel,
                              arguments.force};
  Session& session = Open(context);
  Node& node = session.RequireHealthy(arguments.node);
  for (const std::string& path : ExportSample(session, node, arguments.qualityClass, options)) {
    context.out << path << '\n';
  }
  return kAllWell;
}

int Format(const Context& context, const std::string& name, const std::string& qualityClass,
           const std::string& format) {
  Session& session = Open(context);
  const qz::uchar index = FormatIndex(session, format);
  Node& node = session.RequireHealthy(name);
  const std::uint64_t steps = session.root().undo().pushed();
  const SDAccessInterface::SDError error =
      node.sample().ChangeSampleFormat(qualityClass.c_str(), index);
  if (error != SDAccessInterface::ERROR_OK) {
    const Failure failure = FailureOf(node, error);
    session.root().UndoSince(steps);  // the change of format stands where the encoding failed
    throw failure;
  }
  if (session.root().undo().pushed() == steps) return kAllWell;  // it has that format
  if (!EncodedIsWhole(node, FactsOf(session, node, qualityClass))) {
    session.root().UndoSince(steps);
    throw Failure("The encoded file could not be written whole; the node stays as it was.",
                  "Make room on the disk.");
  }
  Finish(context, session);
  return kAllWell;
}

int Remove(const Context& context, const std::string& name,
           const std::optional<std::string>& qualityClass) {
  Session& session = Open(context);
  if (qualityClass) {
    Node& node = session.RequireHealthy(name);
    const SDAccessInterface::SDError error = node.sample().RemoveSample(qualityClass->c_str());
    if (error != SDAccessInterface::ERROR_OK) throw FailureOf(node, error);
    session.root().ForgetClass(node, *qualityClass);
  } else {
    Node& node = session.Require(name);
    if (node.row().locked) {
      throw Failure(fmt::format("Node \"{}\" is locked.", node.name()),
                    AdviceFor(SDAccessInterface::ERROR_READONLY));
    }
    if (!node.damaged() && node.sample().IsCheckedOut()) {
      throw Failure(fmt::format("Node \"{}\" is checked out.", node.name()),
                    AdviceFor(SDAccessInterface::ERROR_ISCHECKEDOUT));
    }
    if (node.damaged()) context.err << "note: the files of a damaged node stay where they are.\n";
    if (!session.root().DeleteNode(&node)) throw Failure("The node could not be removed.");
  }
  Finish(context, session);
  return kAllWell;
}

int Dump(const Context& context, const std::string& file) {
  std::string problem;
  if (DumpFile(file, context.out, problem)) return kAllWell;
  throw Failure(fmt::format("\"{}\": {}", file, problem));
}

int SoundFileInfo(const Context& context, const std::string& file, bool json) {
  return PrintSoundInfo(file, json, context.out) ? kAllWell : kSomeFailed;
}

int Convert(const Context& context, const ConvertArguments& arguments) {
  const ConvertOptions options{FullPath(arguments.source), FullPath(arguments.target),
                               arguments.codec, arguments.force};
  for (const std::string& note : ConvertSound(options))
    context.err << "note: " << note << '\n';
  context.out << Printable(arguments.target) << '\n';
  return kAllWell;
}

}  // namespace samplehost
