// A plain model of a database and its files: what every operation of the library has to answer and
// to leave behind, without paths, streams, codecs or transactions.
//
// Folders are numbers; a folder gets its number whether or not the operation that wants it comes to
// its end. The content of an encoded file is "encoded" and its format's index, that of a raw file
// its bytes.
#ifndef TESTS_SD_RANDOM_WALK_MODEL_H_
#define TESTS_SD_RANDOM_WALK_MODEL_H_

#include <map>
#include <string>
#include <vector>

#include "sampledata/sd_access.h"

namespace sdtest::walk {

using Error = SDAccess::SDError;

constexpr int kNoFolder = -1;
constexpr long kNeverSaved = 0;

// The two files of one sample.
struct Files {
  int folder = kNoFolder;
  std::string qualClass;
  std::string extension;

  std::string Raw() const { return qualClass + "." + extension; }
  std::string Encoded() const { return qualClass + ".esmp"; }
  bool operator==(const Files&) const = default;
};

struct Sample {
  Files files;
  std::string original;
  int type = 0;
  long version = kNeverSaved;  // of the save or load that covered it last
};

struct Node {
  std::string name;
  std::string selected;
  std::vector<Sample> samples;
  int folder = kNoFolder;
  bool out = false;
  std::string outFolder;
  int beforeCheckIn = kNoFolder;
  bool overtaken = false;  // the files have changed since the check-in
};

struct Record {
  SDUndoAction action;
  int node;
  Node before;
};

struct Source {
  std::string qualClass;
  std::string path;
};

class Model {
 public:
  // --- What a user does. `id` is a node of the model. ---
  Error Import(int id, const std::string& source, int format, const std::string& qualClass);
  Error ChangeFormat(int id, const std::string& qualClass, int format);
  Error Remove(int id, const std::string& qualClass);
  bool Select(int id, const std::string& qualClass);
  Error CheckOut(int id, const std::string& folder);
  // An empty folder: where the files went.
  Error CheckIn(int id, const std::string& folder);
  Error UndoCheckIn(int id);
  Error UndoCheckOut(int id);
  Error RedoCheckOut(int id);
  // Into the new and empty node `id`.
  bool Copy(int id, int from);
  // Through the host, which takes a record of it.
  void Delete(int id);
  // The latest record. The node of a deletion's record is there again by then, and empty.
  bool Undo();
  // The host drops a node without a word to the library.
  void Drop(int id);

  void SaveSetup();
  bool SaveNode(int id);
  void Commit();
  void Close(bool flagged);
  void Open();

  // --- What there is ---
  std::map<int, Node> nodes;
  std::vector<Record> records;
  std::vector<Files> toDelete;
  std::size_t bookmark = 0;
  std::vector<Files> unsaved;
  std::map<int, std::map<std::string, std::string>> disk;  // the sample folder
  std::map<std::string, std::string> outside;              // by full path
  std::map<int, Node> saved;
  // The undo of a check-in has brought files back that no list knows until the next save.
  bool forgotten = false;

  Sample* Find(Node& node, const std::string& qualClass);
  bool HasRaw(const Files& files) const { return Has(files.folder, files.Raw()); }
  bool HasEncoded(const Files& files) const { return Has(files.folder, files.Encoded()); }

 private:
  bool Has(int folder, const std::string& name) const;
  void Note(SDUndoAction action, int id, const Node& before);
  bool NameFiles(Node& node, Sample& sample);
  Error Move(Node& node, const std::vector<Source>& sources, int format);
  Error BringIn(Node& moved, const Source& source, int format);
  Error TakeAlong(Node& moved, const Files& old);
  void TakeOnlyOther(Files& files) const;
  void Unmark(const Files& files);
  void DeleteFiles(const Files& files);
  void DeleteFolderIfEmpty(int folder);
  void DropFiles(const Files& files);
  void Reclaim(const Sample& sample);
  bool AppendCopy(Node& node, const Sample& old);
  bool IsSaved(const Files& files) const;

  int folders_ = 0;
  long version_ = 1;
};

}  // namespace sdtest::walk

#endif  // TESTS_SD_RANDOM_WALK_MODEL_H_
