// SDAccess: the behaviour of one sample node, from its records to its files.
//
// One folder of the sample folder belongs to the node; in it, per quality class, a raw copy of an
// imported sound file and its encoded form (.esmp). Files of a state are never changed: a change
// writes all of them into a new folder, and the setup node's lists decide when old ones go.
#ifndef SAMPLEDATA_SD_ACCESS_H_
#define SAMPLEDATA_SD_ACCESS_H_

#include "PublicIncludes/kelvo_tarvanesampledata.h"
#include "audio/audio.h"
#include "sampledata/sd_intern.h"
#include "sampledata/sd_nodefile.h"

class PGISampleDataBaseInterface;
class SDSetup;

class SDAccess final : public SDTarvaneAccessInterface {
 public:
  SDAccess() = default;
  // Outside a shutdown of the database the node's files are marked for deletion.
  ~SDAccess();
  SDAccess(const SDAccess&) = delete;
  SDAccess& operator=(const SDAccess&) = delete;

  bool Init(HDBBaseNodeInterface* _baseNode, bool& signularTypeDublicated) override;
  bool Copy(const HDBBaseNodeInterface* node) override;
  bool Load(DIOFile* file, const qz::string* name) override;
  bool Save(DIOFile* file, const qz::string* name) const override;
  bool DoUndo(HDBUndoInfo* info) override;
  bool DiscardUndoInfo(HDBUndoInfo* info) const override;
  bool GatherDeleteInfo(HDBUndoInfo* info) override;
  bool GetLastError(qz::string& text, ulong& code) const override;
  bool Move(HDBBaseNodeInterface* node, HDBBaseNodeInterface* newParent) override;
  bool Rename(HDBBaseNodeInterface* node, const qz::string& oldname) override;
  bool ParentHasBeenRenamed() override;
  HDBIDType GetRefType() const override;

  qz::string GetTargetPlatform() const override;
  std::list<qz::string> EnumerateSampleFormats() const override;
  SDSetupInterface* GetSetupInterface() override;
  SDError ImportSample(const qz::string& originalname, uchar formatIndex,
                       const qz::string& qualClass) override;
  SDError RemoveSample(const qz::string& qualClass) override;
  SDError ChangeSampleFormat(const qz::string& qualClass, uchar formatIndex) override;
  short* GetRawData(const qz::string& qualClass, uchar channel) const override;
  void* GetEncodedData(const qz::string& qualClass, uchar channel, ulong& size) const override;
  short* GetDecodedData(const qz::string& qualClass, uchar channel) const override;
  SDInfo* GetSampleInformation(const qz::string& qualClass, SDInfo& _info) const override;
  SDInfo* GetOriginalSampleInformation(const qz::string& qualClass, SDInfo& _info) const override;
  std::list<qz::string> GetQualityClasses() const override;
  qz::string GetSelQualityClass() const override;
  bool SetSelQualityClass(const qz::string& _selQualityClass) override;
  SDError CheckIn(const qz::string& fromFolder) override;
  SDError CheckIn() override;
  SDError CheckOut(const qz::string& toFolder) const override;
  SDError UndoCheckIn() override;
  SDError UndoCheckOut() const override;
  SDError RedoCheckOut() const override;
  bool IsCheckedOut() const override;
  bool CanUndoCheckIn() const override;

  SDExtraData* GetExtraData(const qz::string& qualClass, uchar channel) const override;

  // The first bytes of an .esmp file.
  static constexpr char kEncodedFileId[4] = {'E', 'S', 'M', 'P'};

  // The .esmp head, 40 bytes as it stands in the file.
  struct SDEncodedDataHeader {
    char id[4];  // "ESMP"
    ushort numChannels;
    ushort compType;    // an SDCompType
    ulong frq;          // Hz
    ulong padding;      // written as 0, never read
    qz::uint64 length;  // samples per channel, without the last frame's padding
    qz::uint64 loop;    // loop start, 0 without a loop
    qz::uint64 loopLength;
  };

  // Extra data of an ADPCM channel, 48 bytes as it stands in the file.
  struct SDExtraDataFileChunk {
    struct _SDExtraDataADPCM {
      short coefTable[16];
      ushort numCoef;
      ushort order;
      short loopY0;
      short loopY1;
      uchar loopPS;
      uchar initialPS;
      uchar zero[6];
    };
    struct _SDExtraDataADPCMPLUS {
      short coefTable[16];
      ushort numCoef;
      ushort order;
      short loopY0;
      short loopY1;
      uchar loopPS;
      uchar initialPS;
      ushort padding;
      ulong numBlocks;
    };
    union _SDExtraData {
      _SDExtraDataADPCM adpcm;
      _SDExtraDataADPCMPLUS adpcmp;
    } data;
  };

 private:
  friend class SDDeleteInfo;
  friend class SDSample;
  friend struct SDTestAccess;

  SDError SetError(SDError error) const;

  // --- Formats ---
  SDCompType ConvertToSaveCompressionType(uchar formatIndex) const;
  SDCompType GetDefaultSampleType() const;
  // One of the five formats that can be encoded. A stored sample may hold another value.
  static bool IsKnownCompType(SDCompType type);
  qz::string CompTypeBinToString(SDCompType type) const;
  SDCompType CompTypeStringToBin(const qz::string& type) const;

  // --- Samples by class: null with ERROR_UNKNOWNCLASS or ERROR_QUALITYNOTAVAILABLE ---
  SDSample* FindQualityClass(const qz::string& qualClass);
  const SDSample* FindQualityClass(const qz::string& qualClass) const;
  SDInfo* FillInfo(const SDSample& sample, const SDInfoIntern& numbers, SDInfo& _info) const;

  // --- Names (sd_access_names.cpp). They set no error code. ---
  bool CreateSampleFileName(const HDBBaseNodeInterface* node, qz::string& sampleFileName) const;
  qz::string ExpandSamplePath(const qz::string& name) const;
  bool SetupInternalName(qz::string& intName, const qz::string& originalName,
                         const qz::string& qualClass);
  qz::string BuildEncodedSampleDataFileName(const qz::string& internalName) const;

  // --- The transaction behind every change of the node's files (sd_access_files.cpp) ---
  class SDKeptSampleInfo;
  // Replaces the raw files of the named classes by the files of `sourceName`, which runs in step,
  // adds samples for classes that the node lacks, and moves all files of the node into a new
  // folder. After a failure list, folder name, bookkeeping and disk are as before.
  SDError CopyNewFiles(const std::list<qz::string>& qualClassName,
                       const std::list<qz::string>& sourceName, uchar formatIndex);
  SDError CopyInternalFiles();
  SDError MoveToNewFolder(const std::list<qz::string>& qualClassName,
                          const std::list<qz::string>& sourceName, uchar formatIndex,
                          std::list<qz::string>& newFiles);
  // Files and folder that no state names any more. Cannot fail; what cannot be deleted stays.
  void DeleteNew(const std::list<qz::string>& files, const qz::string& folder) const;
  SDError BringIn(const qz::string& qualClass, const qz::string& source, uchar formatIndex,
                  std::list<qz::string>& newFiles);
  SDError TakeAlong(const SDKeptSampleInfo& kept, std::list<qz::string>& newFiles);
  SDCompType CompTypeOfNewSample(uchar formatIndex) const;
  void DropFreshCopy(const qz::string& qualClass);
  void GiveBackReference(const qz::string& qualClass);

  // --- Undo and copies (sd_access_undo.cpp) ---
  void RestoreState(const SDUndo& snapshot);
  bool RestoreDeleted(const SDUndo& snapshot);
  bool DeleteOwnNode();
  SDDeleteInfoList FilesOf(const SDSampleList& samples) const;
  // The files of a state that is being left. Where neither a saved state nor an older undo record
  // refers to them they go at once. Takes the entries; cannot fail.
  void DropFiles(SDDeleteInfoList& dropped);
  // The files of the state that has come back, those of `sampleList` from its front. Where the
  // saved database does not refer to them they go at shutdown unless a save covers them first.
  // Takes the entries; cannot fail.
  void ReclaimFiles(SDDeleteInfoList& reclaimed);
  // Makes `smp` a copy of `old` with files of its own in this node's folder. False where they
  // cannot be made; what was copied by then stays.
  bool RestoreSample(SDSample& smp, const SDSample& old);
  bool AppendCopyOf(const SDSample& old);

  // --- Check-out (sd_access_checkout.cpp) ---
  SDError CheckIn(const qz::string* fromFolder);  // null: where the files went
  bool MakeCheckOutNames(qz::string& checkoutName, qz::string& internalName, const qz::string& path,
                         const qz::string& qualClass) const;
  SDError FindCheckedOutFiles(const qz::string& folder, std::list<qz::string>& qualClassName,
                              std::list<qz::string>& checkoutName) const;
  // Names the samples as in the node's folder; `files` takes those that could be named.
  SDError NameInOldFolder(SDSampleList& samples, SDDeleteInfoList& files);
  void TakeNameThatIsThere(SDSample& sample) const;

  // --- Stored nodes (sd_access_persist.cpp) ---
  bool WriteNode(DIOFile* file, bool ownFile) const;
  bool WriteSample(DIOFile* file, const SDSample& sample) const;
  SDError LoadNodeFile(const qz::string& name);
  SDError ReadNode(DIOFile* file);
  SDError ReadSample(DIOFile* file);
  static SDError ErrorOfRead(nodefile::ReadResult result);
  void FixLocation(qz::string& fileName) const;

  // --- Encoded files (sd_access_tarvane*.cpp) ---
  SDError ReadEncodedSampleInfo(const SDSample& sample, SDInfoIntern* info,
                                SDCompType& compType) const;
  SDError ReadEncodedSampleData(const SDSample& sample, ushort channel, void*& data,
                                ulong& dataSize) const;
  SDError ReadEncodedExtraSampleData(const SDSample& sample, ushort channel, void*& data,
                                     ulong& dataSize) const;
  SDError GenerateEncodedData(SDSample& sample, const _AUDIO* aInfo) const;
  SDError ReadSampleInformation(const qz::string& qualClass);
  bool ReadRawNumbers(const qz::string& rawName, SDSample& sample) const;
  SDExtraData* MakeExtraData(SDCompType compType, const void* data, ulong dataSize) const;
  bool IsEncodedDataUpToDate(const SDSample& sample) const;

  // Const operations of the interface record their failure all the same, and check-out is const
  // to the host although it changes the node's state.
  mutable SDError lastError = ERROR_OK;
  mutable SDSampleList sampleList;  // Save stamps each sample
  qz::string selQualityClass;
  HDBBaseNodeInterface* baseNode = nullptr;  // null until Init; not owned
  PGISampleDataBaseInterface* baseInterface = nullptr;
  SDSetupInterface* setup = nullptr;  // an SDSetup; not owned
  // The node's folder, relative to the folder of the database file; empty until its first file.
  qz::string internalSampleFileName;
  mutable bool checkedOut = false;
  mutable qz::string checkOutFolder;
  qz::string lastPreCheckOutInternalName;  // the folder from before the last check-in, or empty
};

static_assert(sizeof(SDAccess::SDEncodedDataHeader) == 40);
static_assert(sizeof(SDAccess::SDExtraDataFileChunk) == 48);

#endif  // SAMPLEDATA_SD_ACCESS_H_
