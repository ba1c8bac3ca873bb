#include "host/verify.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <vector>

#include "audio/audio.h"
#include "host/database.h"
#include "host/encoded_check.h"
#include "host/failure.h"
#include "host/paths.h"
#include "host/report.h"
#include "host/session.h"
#include "host/sound_check.h"
#include "host/stored_node.h"

namespace samplehost {

namespace {

using Json = nlohmann::ordered_json;

struct Finding {
  std::string node;
  std::string qualityClass;
  std::string file;  // native; empty where it is about the node
  std::string what;
  bool warning = false;     // legal, but odd
  bool repairable = false;  // a new encoded file mends it
  std::string encoded;      // full path of the encoded file
};

struct Findings {
  std::vector<Finding> all;
  std::size_t numNodes = 0;
  std::size_t numSamples = 0;

  bool Damaged() const {
    return std::any_of(all.begin(), all.end(), [](const Finding& f) { return !f.warning; });
  }
};

// File times as the library compares them: in steps of 100 ns.
std::int64_t WriteTime(const std::string& native) {
  constexpr std::int64_t kStepsPerSecond = 10000000;
  constexpr std::int64_t kNanosPerStep = 100;
  struct stat status {};
  if (::stat(native.c_str(), &status) != 0) return 0;
  return status.st_mtim.tv_sec * kStepsPerSecond + status.st_mtim.tv_nsec / kNanosPerStep;
}

// One sample of the saved state, and what is found about its two files.
class SampleCheck {
 public:
  SampleCheck(const std::string& folder, const std::string& node, const StoredSample& sample,
              std::vector<Finding>& findings)
      : node_(node), sample_(sample), findings_(findings) {
    rawPath_ = Expand(folder, sample.fileName.c_str());
    encodedPath_ = EncodedPathOf(rawPath_);
  }

  void Run() {
    const bool rawIsWhole = CheckRaw();
    if (!FileSize(encodedPath_)) {
      AddEncoded("is missing", false, rawIsWhole);
      return;
    }
    const std::string broken = CheckEncodedFile(NativePath(encodedPath_), head_);
    if (!broken.empty()) {
      AddEncoded(broken, false, rawIsWhole);
      return;
    }
    if (rawIsWhole) Compare();
  }

 private:
  void Add(const std::string& path, const std::string& what, bool warning, bool repairable) {
    findings_.push_back({node_, sample_.qualityClass, NativePath(path), what, warning, repairable,
                         repairable ? encodedPath_ : std::string()});
  }
  void AddEncoded(const std::string& what, bool warning, bool repairable) {
    Add(encodedPath_, what, warning, repairable);
  }

  bool CheckRaw() {
    if (!FileSize(rawPath_)) {
      Add(rawPath_, "is missing", false, false);
      return false;
    }
    if (const std::optional<Refusal> refusal = CheckSoundFile(rawPath_)) {
      Add(rawPath_, refusal->reason, false, false);
      return false;
    }
    _AUDIO audio{};
    if (audio_GetFileInfo(rawPath_.c_str(), &audio) != AUDIO_OK) {
      Add(rawPath_, AudioErrorMsg, false, false);
      return false;
    }
    raw_.rate = audio.SampleRate;
    raw_.length = audio.NumSamples;
    if (audio.LoopType != 0) {
      raw_.loop = audio.LoopStart;
      raw_.loopLength = audio.LoopEnd + 1U - audio.LoopStart;
    }
    rawChannels_ = audio.NumChannels;
    audio_FreeWave(&audio);
    return true;
  }

  // Both files are whole by themselves: do they, and the record, agree?
  void Compare() {
    const bool sameSound = head_.numbers == raw_ && head_.numChannels == rawChannels_;
    const bool encodedAsNoted = head_.numbers == sample_.encoded;
    const bool rawAsNoted = sample_.raw == raw_;
    if (head_.compType != sample_.compType) {
      AddEncoded("is of another format than its record", false, true);
    } else if (WriteTime(NativePath(encodedPath_)) < WriteTime(NativePath(rawPath_))) {
      AddEncoded("is older than its raw file", true, true);
    } else if (sameSound && encodedAsNoted && rawAsNoted) {
      return;
    } else if (sameSound) {
      AddEncoded("fits its raw file, but not the record (a check-in that was taken back?)", true,
                 true);
    } else if (encodedAsNoted && rawAsNoted) {
      AddEncoded("was kept over a re-import: it is of another sound than its raw file", true, true);
    } else if (encodedAsNoted) {
      Add(rawPath_, "is another sound than its record", false, false);
    } else {
      AddEncoded("does not agree with its record", false, true);
    }
  }

  const std::string& node_;
  const StoredSample& sample_;
  std::vector<Finding>& findings_;
  std::string rawPath_;
  std::string encodedPath_;
  EncodedHead head_;
  StoredNumbers raw_;
  std::uint64_t rawChannels_ = 0;
};

Finding Unreadable(const std::string& node) {
  Finding finding;
  finding.node = node;
  finding.what = "the stored data cannot be read";
  return finding;
}

Findings Look(const std::string& path) {
  Findings findings;
  Database database = Database::Open(NativePath(path));
  for (const StoredNode& node : database.ReadNodes()) {
    if (node.row.kind == "setup" && !ReadStoredFolder(node.payload)) {
      findings.all.push_back(Unreadable(node.row.name));
    }
    if (node.row.kind != "sample") continue;
    ++findings.numNodes;
    const auto samples = ReadStoredSamples(node.payload);
    if (!samples) {
      findings.all.push_back(Unreadable(node.row.name));
      continue;
    }
    for (const StoredSample& sample : *samples) {
      ++findings.numSamples;
      SampleCheck(FolderOf(path), node.row.name, sample, findings.all).Run();
    }
  }
  return findings;
}

// Loading a node makes its missing encoded files anew, and a save takes up their numbers.
void Repair(const Context& context, const std::string& path, const Findings& findings) {
  std::set<std::string> files;
  for (const Finding& finding : findings.all) {
    if (finding.repairable) files.insert(NativePath(finding.encoded));
  }
  if (files.empty()) return;
  for (const std::string& file : files)
    ::unlink(file.c_str());  // one that stays is found by the second look
  Session session(context.libraryPath, path);
  session.set_durable(context.sync);
  session.Save();
}

bool StillThere(const Findings& now, const Finding& before) {
  return std::any_of(now.all.begin(), now.all.end(), [&](const Finding& finding) {
    return finding.node == before.node && finding.qualityClass == before.qualityClass &&
           finding.file == before.file;
  });
}

const char* StateOf(const Finding& finding, bool repaired) {
  if (repaired) return "repaired";
  return finding.warning ? "warning" : "damaged";
}

void Print(const Findings& before, const Findings& now, std::ostream& out) {
  Table table({"NODE", "CLASS", "STATE", "FILE", "WHAT"});
  for (const Finding& finding : before.all) {
    const bool repaired = &before != &now && !StillThere(now, finding);
    table.Add({finding.node, finding.qualityClass, StateOf(finding, repaired), finding.file,
               finding.what});
  }
  if (!table.empty()) table.Print(out);
  out << fmt::format("{} nodes, {} samples: {}\n", now.numNodes, now.numSamples,
                     now.Damaged() ? "damaged" : "whole");
}

void PrintJson(const Findings& before, const Findings& now, std::ostream& out) {
  Json json;
  json["nodes"] = now.numNodes;
  json["samples"] = now.numSamples;
  json["whole"] = !now.Damaged();
  json["findings"] = Json::array();
  for (const Finding& finding : before.all) {
    const bool repaired = &before != &now && !StillThere(now, finding);
    json["findings"].push_back({{"node", finding.node},
                                {"class", finding.qualityClass},
                                {"state", StateOf(finding, repaired)},
                                {"file", finding.file},
                                {"what", finding.what}});
  }
  out << json.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

}  // namespace

int Verify(const Context& context, const VerifyOptions& options) {
  const std::string path = FullPath(context.database);
  const Findings before = Look(path);
  Findings after;
  if (options.repair) {
    Repair(context, path, before);
    after = Look(path);
  }
  const Findings& now = options.repair ? after : before;
  if (options.json) {
    PrintJson(before, now, context.out);
  } else {
    Print(before, now, context.out);
  }
  return now.Damaged() ? kSomeFailed : kAllWell;
}

}  // namespace samplehost
