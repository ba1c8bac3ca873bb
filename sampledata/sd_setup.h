// SDSetup: the one node per database that holds what all sample nodes share.
#ifndef SAMPLEDATA_SD_SETUP_H_
#define SAMPLEDATA_SD_SETUP_H_

#include "PublicIncludes/kelvo_tarvanesampledata.h"
#include "sampledata/sd_intern.h"

class PGISampleDataBaseInterface;

// The names of the sample formats, in the order of their index: "default" first.
std::list<qz::string> SDEnumerateSampleFormats();
// The one target platform.
qz::string SDTargetPlatform();

class SDSetup final : public SDSetupInterface {
 public:
  SDSetup() = default;
  // Frees the root's place for a setup node and, where the whole database is closing, deletes what
  // the two lists say.
  ~SDSetup();
  SDSetup(const SDSetup&) = delete;
  SDSetup& operator=(const SDSetup&) = delete;

  bool Init(HDBBaseNodeInterface* _baseNode, bool& signularTypeDublicated) override;
  bool Copy(const HDBBaseNodeInterface* node) override;
  bool Load(DIOFile* file, const qz::string* name) override;
  bool Save(DIOFile* file, const qz::string* name) const override;
  bool DoUndo(HDBUndoInfo* info) override;
  bool DiscardUndoInfo(HDBUndoInfo* info) const override;
  bool GatherDeleteInfo(HDBUndoInfo* info) override;
  bool GetLastError(qz::string& text, qz::ulong& code) const override;
  bool Move(HDBBaseNodeInterface* node, HDBBaseNodeInterface* newParent) override;
  bool Rename(HDBBaseNodeInterface* node, const qz::string& oldname) override;
  bool ParentHasBeenRenamed() override;
  HDBIDType GetRefType() const override;

  qz::slong SetSampleFolder(const qz::string& _sampleFolder) override;
  qz::string GetSampleFolder() const override;
  qz::string GetTargetPlatform() const override;
  std::list<qz::string> EnumerateSampleFormats() const override;
  std::list<qz::string> EnumerateQualityClasses() const override;
  qz::uchar GetNumQualityClasses() const override;
  signed char GetQualityClassLevel(const qz::string& name) const override;
  bool GetQualityClassName(qz::uchar index, qz::string& name) const override;
  bool GetQualityClassNameFromLevel(qz::uchar level, qz::string& name) const override;
  SDError AddQualityClass(const qz::string& name, qz::uchar level, qz::ushort count) override;
  SDError AddQualityClass(const qz::string& name, qz::uchar level) override;
  SDError RemoveQualityClass(const qz::string& name) override;
  bool ProbeQualityClass(qz::uchar level) const override;
  bool ProbeQualityClass(const qz::string& name) const override;
  bool AddRef(const qz::string& name) override;
  bool RemoveRef(const qz::string& name) override;

 private:
  friend class SDAccess;
  friend class SDSample;
  friend struct SDTestAccess;

  // For sample nodes alone. Marking may run out of memory, which throws; the node that marks turns
  // it into its own failure.
  const SDVersionID& GetSavedVersionID() const { return savedVersionID; }
  bool IsAnySampleCheckedOut() const;
  // The class exists and its count is not 0.
  bool IsReferenced(const qz::string& name) const {
    const SDClass* found = classList.Find(name);
    return found != nullptr && found->GetRefCount() != 0;
  }
  void MarkFilesForDeletion(const SDDeleteInfo& info);
  void UnmarkFilesForDeletion(const SDDeleteInfo& info);
  void MarkFilesAsUnsaved(const SDDeleteInfo& info);
  // Marks files that a change replaced for deletion and those that it made as unsaved. The entries
  // move over, so this cannot run out of memory halfway.
  void MarkFilesReplaced(SDDeleteInfoList& oldFiles, SDDeleteInfoList& newFiles) {
    deleteFilesList.append(oldFiles);
    unsavedFilesList.append(newFiles);
  }
  void UnmarkFilesAsUnsaved(const SDDeleteInfo& info);
  bool AreFilesUnsaved(const SDDeleteInfo& info) const;

  SDError SetError(SDError error) const;
  bool WriteNode(DIOFile* file, bool ownFile) const;
  SDError ReadNode(DIOFile* file, bool ownFile);

  mutable SDError lastError = ERROR_OK;
  HDBBaseNodeInterface* baseNode = nullptr;  // null until Init succeeds; not owned
  PGISampleDataBaseInterface* baseInterface = nullptr;
  SDClassList classList;
  qz::string sampleFolder;  // relative to the database's folder where that can be had
  // Save is const to the host, yet it is the point at which these change their meaning.
  mutable SDDeleteInfoList deleteFilesList;
  mutable SDDeleteInfoList unsavedFilesList;  // files that no saved state refers to
  mutable SDVersionID savedVersionID;
};

#endif  // SAMPLEDATA_SD_SETUP_H_
