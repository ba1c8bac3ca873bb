#include "host/report.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "host/paths.h"

namespace samplehost {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kUsualWidth = 60;

// Characters as a terminal counts them, near enough: continuation bytes of UTF-8 take no column.
std::size_t Width(const std::string& text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  }));
}

void PrintJson(const Json& json, std::ostream& out) {
  // A byte that is no UTF-8 must not stop the report.
  out << json.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

template <typename T>
Json OrNull(const std::optional<T>& value) {
  return value ? Json(*value) : Json(nullptr);
}

Json LoopToJson(const SDInfo& info) {
  if (info.loopLength == 0) return nullptr;
  return {{"start", info.loop}, {"end", info.loop + info.loopLength - 1}};
}

std::string LoopText(const SDInfo& info) {
  if (info.loopLength == 0) return "none";
  const std::uint64_t end = info.loop + info.loopLength - 1;
  return fmt::format("{}..{} (both included, {} samples){}", info.loop, end, info.loopLength,
                     end >= info.length ? ", ends beyond the sound" : "");
}

std::string BytesText(const std::optional<std::uint64_t>& bytes) {
  return bytes ? fmt::format("{}", *bytes) : "missing";
}

std::string RatioText(const SampleFacts& facts) {
  const std::optional<double> ratio = RatioOf(facts);
  return ratio ? fmt::format("{:.2f}", *ratio) : "-";
}

double Seconds(const SDInfo& info) {
  return info.frq == 0 ? 0.0 : static_cast<double>(info.length) / info.frq;
}

std::string NoiseText(const ChannelNoise& noise) {
  if (noise.exact) return "exact";
  return noise.db ? fmt::format("{:.1f} dB", *noise.db) : "silence in the raw file";
}

// What a full path looks like to the user.
std::string ShownPath(const qz::string& path) {
  try {
    return NativePath(Narrow(path));
  } catch (const std::exception&) {
    return Narrow(path);
  }
}

Json FactsToJson(const SampleFacts& facts) {
  Json json;
  json["class"] = facts.qualityClass;
  json["format"] = Narrow(facts.info.type);
  json["rate_hz"] = facts.info.frq;
  json["channels"] = facts.info.numChannels;
  json["length"] = facts.info.length;
  json["loop"] = LoopToJson(facts.info);
  json["key"] = facts.info.orgKey;
  json["original"] = ShownPath(facts.info.originalName);
  json["raw_file"] = ShownPath(facts.rawPath.c_str());
  json["raw_bytes"] = OrNull(facts.rawBytes);
  json["encoded_bytes"] = OrNull(facts.encodedBytes);
  json["ratio"] = OrNull(RatioOf(facts));
  return json;
}

Json NodeToJson(const Node& node) {
  Json json;
  json["node"] = node.name();
  json["locked"] = node.row().locked;
  json["damaged"] = node.damaged() ? Json(node.damage()) : Json(nullptr);
  return json;
}

// The noise of all channels in one cell.
std::string NoiseCell(const InfoEntry& entry) {
  if (!entry.problem.empty()) return entry.problem;
  std::string cell;
  for (const ChannelNoise& noise : entry.noise)
    cell += (cell.empty() ? "" : ", ") + NoiseText(noise);
  return cell;
}

void AddRows(const NodeEntries& listed, bool withNoise, Table& table) {
  const Node& node = *listed.node;
  const std::string locked = node.row().locked ? "locked" : "";
  const std::size_t blanks = withNoise ? 9 : 8;
  const auto remark = [&](const std::string& text) {
    std::vector<std::string> row(blanks + 1);
    row.front() = node.name();
    row.push_back(text);
    table.Add(std::move(row));
  };
  if (node.damaged()) return remark("DAMAGED: " + node.damage());
  if (listed.entries.empty()) return remark("empty " + locked);
  for (const InfoEntry& entry : listed.entries) {
    const SampleFacts& facts = entry.facts;
    const SDInfo& info = facts.info;
    std::vector<std::string> row = {node.name(),
                                    facts.qualityClass,
                                    Narrow(info.type),
                                    fmt::format("{}", info.frq),
                                    fmt::format("{}", info.numChannels),
                                    fmt::format("{}", info.length),
                                    BytesText(facts.rawBytes),
                                    BytesText(facts.encodedBytes),
                                    RatioText(facts)};
    if (withNoise) row.push_back(NoiseCell(entry));
    row.push_back(locked);
    table.Add(std::move(row));
  }
}

Json SampleToJson(const InfoEntry& entry, bool withNoise) {
  Json sample = FactsToJson(entry.facts);
  if (!withNoise) return sample;
  sample["snr"] = Json::array();
  for (const ChannelNoise& noise : entry.noise) {
    sample["snr"].push_back({{"db", OrNull(noise.db)}, {"exact", noise.exact}});
  }
  sample["problem"] = entry.problem.empty() ? Json(nullptr) : Json(entry.problem);
  return sample;
}

void PrintEntry(const InfoEntry& entry, bool selected, std::ostream& out) {
  const SampleFacts& facts = entry.facts;
  const SDInfo& info = facts.info;
  const auto line = [&out](const char* head, const std::string& text) {
    out << fmt::format("    {:<10}{}\n", head, Printable(text));
  };
  out << fmt::format("  class {}{}\n", Printable(facts.qualityClass),
                     selected ? " (selected)" : "");
  line("format", Narrow(info.type));
  line("rate", fmt::format("{} Hz", info.frq));
  line("channels", fmt::format("{}", info.numChannels));
  line("length", fmt::format("{} samples ({:.3f} s)", info.length, Seconds(info)));
  line("loop", LoopText(info));
  line("key", fmt::format("{}", info.orgKey));
  line("from", ShownPath(info.originalName));
  line("raw",
       fmt::format("{} bytes, {}", BytesText(facts.rawBytes), ShownPath(facts.rawPath.c_str())));
  line("encoded", fmt::format("{} bytes", BytesText(facts.encodedBytes)));
  line("ratio", RatioText(facts));
  for (std::size_t c = 0; c < entry.noise.size(); ++c) {
    line("SNR", fmt::format("channel {}: {}", c, NoiseText(entry.noise[c])));
  }
  if (!entry.problem.empty()) line("SNR", entry.problem);
}

}  // namespace

std::string Printable(const std::string& text) {
  std::string shown;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    shown += byte < 0x20 || byte == 0x7F ? fmt::format("\\x{:02X}", byte) : std::string(1, c);
  }
  return shown;
}

void Table::Print(std::ostream& out) const {
  std::vector<std::size_t> widths(rows_.front().size());
  for (const auto& row : rows_) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      const std::size_t width = Width(Printable(row[i]));
      if (width <= kUsualWidth) widths[i] = std::max(widths[i], width);
    }
  }
  for (const auto& row : rows_) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      const std::string text = Printable(row[i]);
      line += text + std::string(std::max(widths[i], Width(text)) - Width(text) + 2, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    out << line << '\n';
  }
}

void PrintList(const std::vector<NodeEntries>& nodes, bool withNoise, std::ostream& out) {
  std::vector<std::string> heads = {"NODE",   "CLASS", "FORMAT",  "RATE", "CH",
                                    "LENGTH", "RAW",   "ENCODED", "RATIO"};
  if (withNoise) heads.push_back("SNR");
  heads.push_back("");
  Table table(std::move(heads));
  for (const NodeEntries& node : nodes)
    AddRows(node, withNoise, table);
  table.Print(out);
}

void PrintListJson(const Session& session, const std::vector<NodeEntries>& nodes, bool withNoise,
                   std::ostream& out) {
  Json list = Json::array();
  for (const NodeEntries& listed : nodes) {
    Json json = NodeToJson(*listed.node);
    json["classes"] = Json::array();
    for (const InfoEntry& entry : listed.entries)
      json["classes"].push_back(SampleToJson(entry, withNoise));
    list.push_back(json);
  }
  Json json;
  json["database"] = NativePath(session.path());
  json["sample_folder"] = NativePath(session.SampleFolder());
  json["nodes"] = list;
  PrintJson(json, out);
}

void PrintInfo(const Node& node, const std::vector<InfoEntry>& entries, std::ostream& out) {
  out << Printable(node.name()) << (node.row().locked ? " (locked)" : "") << '\n';
  if (node.damaged()) {
    out << "  DAMAGED: " << node.damage() << '\n';
    for (const std::string& name : node.row().classes)
      out << "  class " << Printable(name) << '\n';
    return;
  }
  const std::string selected = Narrow(node.sample().GetSelQualityClass());
  if (entries.empty()) out << "  empty\n";
  for (const InfoEntry& entry : entries) {
    PrintEntry(entry, entry.facts.qualityClass == selected, out);
  }
}

void PrintInfoJson(const Node& node, const std::vector<InfoEntry>& entries, std::ostream& out) {
  Json json = NodeToJson(node);
  json["selected_class"] =
      node.damaged() ? Json(nullptr) : Json(Narrow(node.sample().GetSelQualityClass()));
  json["classes"] = Json::array();
  for (const InfoEntry& entry : entries)
    json["classes"].push_back(SampleToJson(entry, true));
  PrintJson(json, out);
}

}  // namespace samplehost
