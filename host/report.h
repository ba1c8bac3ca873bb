// What the verbs print: tables for people, JSON with stable keys for programs.
#ifndef HOST_REPORT_H_
#define HOST_REPORT_H_

#include <ostream>
#include <string>
#include <vector>

#include "host/sample_data.h"

namespace samplehost {

// Columns as wide as their widest text of usual length, two blanks between them; a longer text
// pushes the rest of its row aside, not that of all rows. Control characters in texts are
// shown as escapes, so that no file name can write over the screen.
class Table {
 public:
  explicit Table(std::vector<std::string> heads) { rows_.push_back(std::move(heads)); }
  // Texts of a row; missing ones at the end are empty.
  void Add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
  bool empty() const { return rows_.size() < 2; }
  void Print(std::ostream& out) const;

 private:
  std::vector<std::vector<std::string>> rows_;
};

// `text` with control characters as escapes.
std::string Printable(const std::string& text);

struct InfoEntry {
  SampleFacts facts;
  std::vector<ChannelNoise> noise;  // empty where nobody asked for it
  std::string problem;              // why there is no noise; empty where there is
};

struct NodeEntries {
  const Node* node;
  std::vector<InfoEntry> entries;  // empty for a damaged one
};

// Nodes in the given order. `withNoise` adds what the entries hold of it.
void PrintList(const std::vector<NodeEntries>& nodes, bool withNoise, std::ostream& out);
void PrintListJson(const Session& session, const std::vector<NodeEntries>& nodes, bool withNoise,
                   std::ostream& out);

// One node. `entries` is empty for a damaged one.
void PrintInfo(const Node& node, const std::vector<InfoEntry>& entries, std::ostream& out);
void PrintInfoJson(const Node& node, const std::vector<InfoEntry>& entries, std::ostream& out);

}  // namespace samplehost

#endif  // HOST_REPORT_H_
