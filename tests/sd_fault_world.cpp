#include "tests/sd_fault_world.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>

#include "audio/audio.h"
#include "host/encoded_check.h"
#include "tests/platform_folder.h"

namespace sdtest {

namespace {

constexpr std::size_t kIdLength = 36;

std::filesystem::file_time_type Time(int seconds) {
  return std::chrono::file_clock::from_sys(std::chrono::sys_seconds(std::chrono::seconds(seconds)));
}

// The sounds of all worlds. What a world starts with is older than its files, the rest is newer.
struct Sounds : platform_test::TempFolder {
  Sounds() : platform_test::TempFolder(platform_test::FastPlace()) {
    platform::MountDrive('W', path);
    Put("16.wav", WavBytes(SomeSound(40)));
    Put("8.wav", WavBytes(SomeSound(40, 2, 8)));
    Put("16.aif", AiffBytes(SomeSound(40, 2)));
    Put("8.aif", AiffBytes(SomeSound(40, 1, 8)));
    Put("low.wav", WavBytes(SomeSound(20)));
    Put("high.wav", WavBytes(SomeSound(30, 2)));
    Wav sound = SomeSound(320);
    std::fill(sound.samples.begin() + 32, sound.samples.begin() + 160, 0);
    WriteMort("W:\\gsm.mort", sound, AUDIO_FORMAT_MORT_GSM);
    WriteMort("W:\\gb.mort", sound, AUDIO_FORMAT_MORT_GB);
    for (const char* name : {"low.wav", "high.wav"})
      std::filesystem::last_write_time(Native(name), Time(900000000));
  }
};

bool IsId(const std::string& text, std::size_t at) {
  if (at + kIdLength > text.size()) return false;
  for (std::size_t i = 0; i < kIdLength; ++i) {
    const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
    const auto c = static_cast<unsigned char>(text[at + i]);
    if (dash ? c != '-' : std::isxdigit(c) == 0) return false;
  }
  return true;
}

std::string IdText(const SDVersionID& version) {
  UUID uuid;
  static_assert(sizeof uuid == sizeof version);
  std::memcpy(&uuid, &version, sizeof uuid);
  RPC_CSTR text = nullptr;
  EXPECT_EQ(RPC_S_OK, UuidToStringA(&uuid, &text));
  const std::string copy = reinterpret_cast<const char*>(text);
  RpcStringFreeA(&text);
  return copy;
}

std::string Print(const SDInfoIntern& info) {
  return std::to_string(info.frq) + " " + std::to_string(info.length) + " " +
         std::to_string(info.loop) + " " + std::to_string(info.loopLength) + " " +
         std::to_string(info.orgKey);
}

bool Begins(const std::string& line, const std::string& start) {
  return line.starts_with(start) || line.substr(2).starts_with(start);
}

}  // namespace

World::World() {
  static const Sounds sounds;
  std::filesystem::create_directory(folder_ + "/s/out");
  setup_.AddQualityClass("Third", 3);
  EXPECT_EQ(SDAccess::ERROR_OK, access_.ImportSample("W:\\low.wav", kPcm16, "Low"));
  EXPECT_EQ(SDAccess::ERROR_OK, access_.ImportSample("W:\\high.wav", kAdpcm, "High"));
  nodes.push_back(&node_);
  SetTimes();
}

void World::SetTimes() {
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_ + "/s/db"))
    std::filesystem::last_write_time(entry, Time(1000000000));
}

World::~World() {
  if (stream != nullptr) DIOFile::CloseFile(stream);
  if (record.data != nullptr) host_.undo.push_back({nullptr, record});
}

FakeNode& World::AddNode() {
  const SparedAllocations host;
  FakeNode& node = host_.AddSample("node");
  nodes.push_back(&node);
  return node;
}

void World::DropNode(FakeNode& node) {
  std::erase(nodes, &node);
  host_.Remove(node);
}

bool World::Save() {
  {
    const SparedAllocations own;
    SetTimes();
  }
  static const qz::string kSaving = "S:\\db\\saving";
  DIOFile* file = DIOFile::OpenFile(kSaving, DIOFile::OPENMODE_CREATE);
  if (file == nullptr) return false;
  bool done = setup_.Save(file, nullptr);
  for (FakeNode* node : nodes)
    done = done && node->Sample().Save(file, nullptr);
  done = DIOFile::CloseFile(file) && done;
  if (!done) return false;
  const SparedAllocations host;
  std::filesystem::rename(folder_ + "/s/db/saving", folder_ + "/s/db/saved");
  saved = FilesOf(nodes, false);
  return true;
}

World::ByClass World::FilesOf(const std::vector<FakeNode*>& of, bool withEncoded) const {
  ByClass files;
  for (const FakeNode* node : of) {
    const SDAccess& access = node->Sample();
    for (const SDSample& sample : SDTestAccess::Samples(access)) {
      std::string& bytes = files[sample.qualClass.c_str()];
      bytes += ReadBytes(Native(SDTestAccess::Expand(access, sample.fileName)));
      if (withEncoded) {
        bytes += ReadBytes(Native(SDTestAccess::EncodedName(access, sample.fileName)));
      }
    }
  }
  return files;
}

World::ByClass World::Reopen() {
  FakeHost host(host_.filename);
  std::vector<FakeNode*> loaded;
  DIOFile* file = DIOFile::OpenFile("S:\\db\\saved", DIOFile::OPENMODE_OPEN);
  qz::uint64 size = 0;
  EXPECT_TRUE(file->GetFileSize(size));
  for (qz::uint64 at = 0; at < size && !::testing::Test::HasFailure();) {
    // The host reads the type chunk.
    EXPECT_TRUE(file->SetPosition(qz::uint64{28}, DIOFile::SEEKMODE_CURRENT));
    FakeNode& node = at == 0 ? host.AddSetup() : host.AddSample();
    EXPECT_TRUE(node.GetTypeInterface()->Load(file, nullptr)) << FakeHost::ErrorText(node);
    if (at != 0) loaded.push_back(&node);
    EXPECT_TRUE(file->GetPosition(at));
  }
  DIOFile::CloseFile(file);
  return FilesOf(loaded, false);
}

int World::Repair() {
  namespace fs = std::filesystem;
  int repaired = 0;
  for (FakeNode* node : nodes) {
    SDAccess& access = node->Sample();
    for (const SDSample& sample : SDTestAccess::Samples(access)) {
      const fs::path raw = Native(SDTestAccess::Expand(access, sample.fileName));
      const fs::path encoded = Native(SDTestAccess::EncodedName(access, sample.fileName));
      samplehost::EncodedHead head;
      if (samplehost::CheckEncodedFile(encoded, head).empty() &&
          fs::last_write_time(raw) <= fs::last_write_time(encoded)) {
        continue;
      }
      fs::remove(encoded);
      EXPECT_EQ(SDAccess::ERROR_OK,
                SDTestAccess::ReadSampleInformation(access, sample.GetQualClass()));
      ++repaired;
    }
  }
  return repaired;
}

// --- All of it, in lines ---

std::string World::Named(const std::string& text, bool isNew) {
  std::string named;
  std::size_t from = 0;
  for (std::size_t dash = 0; (dash = text.find('-', dash)) != std::string::npos; ++dash) {
    const std::size_t at = dash - 8;
    if (dash < from + 8 || !IsId(text, at)) continue;
    std::string id = text.substr(at, kIdLength);
    std::transform(id.begin(), id.end(), id.begin(),
                   [](char c) { return static_cast<char>(std::toupper(c)); });
    if (isNew) names_.emplace(id, "<" + std::to_string(names_.size()) + ">");
    const auto known = names_.find(id);
    named += text.substr(from, at - from) + (known == names_.end() ? "<?>" : known->second);
    from = at + kIdLength;
  }
  return named + text.substr(from);
}

void World::Add(const std::string& line) {
  lines_.push_back(Named(line, true));
}

void World::Print(const SDAccess& node, const std::string& name) {
  Add("selected " + name + SDTestAccess::Selected(const_cast<SDAccess&>(node)).c_str());
  Add("folder " + name + SDTestAccess::Folder(const_cast<SDAccess&>(node)).c_str());
  Add("before " + name + SDTestAccess::FolderBeforeCheckIn(node).c_str());
  Add("out " + name + (node.IsCheckedOut() ? "yes" : "no"));
  Add("out folder " + name + SDTestAccess::CheckOutFolder(node).c_str());
  for (const SDSample& sample : SDTestAccess::Samples(node)) {
    const std::string qualClass = sample.qualClass.c_str();
    Add("sample " + name + qualClass + "|" + sample.originalName.c_str() + "|" +
        sample.fileName.c_str() + "|" + std::to_string(sample.compType) + "|" +
        std::to_string(sample.numChannels) + "|" + sdtest::Print(sample.info));
    Add("encoded " + name + qualClass + "|" + sdtest::Print(sample.encodedInfo));
    Add("stamp " + name + qualClass + " " + IdText(sample.savedVersionIdentifier));
  }
}

void World::PrintSetup() {
  Add(std::string("place ") + setup_.GetSampleFolder().c_str());
  Add("version " + IdText(SDTestAccess::SavedVersion(setup_)));
  for (const SDClass& entry : SDTestAccess::Classes(setup_)) {
    Add(std::string("class ") + entry.GetName().c_str() + " " + std::to_string(entry.GetLevel()) +
        " " + std::to_string(entry.GetRefCount()));
  }
  const auto list = [&](const char* name, const SDDeleteInfoList& files) {
    Add(std::string("bookmark ") + name + std::to_string(SDTestAccess::Bookmark(files)));
    for (const SDDeleteInfo& pair : files) {
      Add(std::string(name) + pair.getRawName().c_str() + "|" + pair.getEncodedName().c_str() +
          "|" + pair.getFolder().c_str());
    }
  };
  list("to delete ", SDTestAccess::ToDelete(setup_));
  list("unsaved ", SDTestAccess::Unsaved(setup_));
}

void World::PrintDisk() {
  for (const auto& [name, content] : ReadTree(folder_ + "/s")) {
    const std::string bytes = Named(content, false);
    lines_.push_back("disk " + Named(name, false) + " " + std::to_string(bytes.size()) + " " +
                     std::to_string(std::hash<std::string>()(bytes)));
  }
}

Lines World::Now() {
  lines_.clear();
  for (std::size_t i = 0; i < nodes.size(); ++i)
    Print(nodes[i]->Sample(), std::to_string(i) + " ");
  if (isOpen) PrintSetup();
  for (const FakeHost::Undo& undo : host_.undo)
    Add("undo " + std::to_string(undo.info.ID));
  Add("modifications " + std::to_string(host_.openModifications));
  Add("undo disabled " + std::to_string(host_.undoDisabled));
  PrintDisk();
  std::sort(lines_.begin(), lines_.end());
  return lines_;
}

std::string Difference(const Lines& before, const Lines& after,
                       const std::vector<std::string>& but) {
  Lines changes;
  const auto note = [&](const char* sign, const Lines& from, const Lines& without) {
    Lines lines;
    std::set_difference(from.begin(), from.end(), without.begin(), without.end(),
                        std::back_inserter(lines));
    for (const std::string& line : lines)
      changes.push_back(sign + line);
  };
  note("- ", before, after);
  note("+ ", after, before);
  std::string text;
  for (const std::string& change : changes) {
    if (std::any_of(but.begin(), but.end(),
                    [&](const std::string& start) { return Begins(change, start); })) {
      continue;
    }
    text += change + "\n";
  }
  return text;
}

}  // namespace sdtest
