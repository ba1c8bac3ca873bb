// The two kinds of node that the library gives: sample nodes (SDAccessInterface and, for this
// platform, SDTarvaneAccessInterface) and the one setup node of a database (SDSetupInterface).
//
// Operations stand in slot order behind those of HDBAccessBaseInterface. Blocks of data are handed
// to the caller, who releases them with free; an SDExtraData is the caller's to delete. Const
// operations that can fail record their failure for GetLastError all the same.
#ifndef PUBLICINCLUDES_KELVO_TARVANESAMPLEDATA_H_
#define PUBLICINCLUDES_KELVO_TARVANESAMPLEDATA_H_

#include <cstdlib>
#include <list>

#include "PublicIncludes/kelvo_data.h"

// The numbers of one sample as the host sees them.
struct SDInfo {
  qz::ulong frq = 0;          // sample rate in Hz
  qz::uint64 length = 0;      // samples per channel
  qz::uint64 loop = 0;        // first sample of the loop; 0 without a loop
  qz::uint64 loopLength = 0;  // samples in the loop; 0 without a loop
  qz::uchar orgKey = 0;       // MIDI note of the sample's own pitch
  qz::uchar numChannels = 0;
  qz::string QualityClass;  // never filled by the library
  qz::string type;          // format name
  qz::string fileName;      // raw copy, relative to the database's folder
  qz::string originalName;  // where it was imported from
};

// The setup node: quality classes and sample folder of a database.
class SDSetupInterface : public HDBAccessBaseInterface {
 public:
  enum SDError {
    ERROR_OK = 0,
    ERROR_COULDNOTLOAD = 1,
    ERROR_SETUPALREADYEXISTS = 2,
    ERROR_CLASSSTILLUSED = 3,
    ERROR_CLASSDOESNOTEXIST = 4,
    ERROR_CLASSALREADYEXISTS = 5,
    ERROR_LEVELALREADYEXISTS = 6,
    ERROR_COULDNOTWRITE = 7,
    ERROR_COULDNOTREAD = 8,
    ERROR_BADVERSION = 9,
    ERROR_BADFORMAT = 10,
    ERROR_SAMPLESARECHECKEDOUT = 11
  };

  // Where new samples go: an existing folder, absolute, with a trailing separator. Stored relative
  // to the database's folder where that can be had. No file moves. Always 0.
  virtual qz::slong SetSampleFolder(const qz::string& _sampleFolder) = 0;
  // As stored.
  virtual qz::string GetSampleFolder() const = 0;
  virtual qz::string GetTargetPlatform() const = 0;
  // A format's place in this list is the index that imports and format changes take.
  virtual std::list<qz::string> EnumerateSampleFormats() const = 0;
  // Names by ascending level.
  virtual std::list<qz::string> EnumerateQualityClasses() const = 0;
  virtual qz::uchar GetNumQualityClasses() const = 0;
  // -1 for an unknown name. Levels from 128 on read negative.
  virtual signed char GetQualityClassLevel(const qz::string& name) const = 0;
  // By place in the list, from 0. False, with `name` unchanged, past the end.
  virtual bool GetQualityClassName(qz::uchar index, qz::string& name) const = 0;
  virtual bool GetQualityClassNameFromLevel(qz::uchar level, qz::string& name) const = 0;
  // Names (compared with case) and levels are unique. Refused while a sample is checked out.
  virtual SDError AddQualityClass(const qz::string& name, qz::uchar level, qz::ushort count) = 0;
  virtual SDError AddQualityClass(const qz::string& name, qz::uchar level) = 0;
  // Refused while the class is referenced or a sample is checked out.
  virtual SDError RemoveQualityClass(const qz::string& name) = 0;
  virtual bool ProbeQualityClass(qz::uchar level) const = 0;
  virtual bool ProbeQualityClass(const qz::string& name) const = 0;
  // The count of a class's references, which the host keeps: one for each sample of the class.
  // False for an unknown name. No guard at either end.
  virtual bool AddRef(const qz::string& name) = 0;
  virtual bool RemoveRef(const qz::string& name) = 0;

 protected:
  SDSetupInterface() = default;
  ~SDSetupInterface() = default;
  SDSetupInterface(const SDSetupInterface&) = default;
  SDSetupInterface& operator=(const SDSetupInterface&) = default;
};

// A sample node: one sample in several quality classes.
class SDAccessInterface : public HDBAccessBaseInterface {
 public:
  using uchar = qz::uchar;
  using ushort = qz::ushort;
  using ulong = qz::ulong;

  enum SDError {
    ERROR_OK = 0,
    ERROR_COULDNOTLOAD = 1,
    ERROR_NOTMONO = 2,
    ERROR_UNSUPPORTEDFORMAT = 3,
    ERROR_NOMEMORY = 4,
    ERROR_READONLY = 5,
    ERROR_COULDNOTWRITE = 6,
    ERROR_NOSETUPNODE = 7,
    ERROR_UNKNOWNCLASS = 8,
    ERROR_QUALITYNOTAVAILABLE = 9,
    ERROR_QUALITYALREADYPRESENT = 10,
    ERROR_COULDNOTREAD = 11,
    ERROR_BADVERSION = 12,
    ERROR_COULDNOTCOPYSAMPLE = 13,
    ERROR_COULDNOTRENAMEFOLDER = 14,
    ERROR_BADFORMAT = 15,
    ERROR_COULDNOTGETSAMPLEINFO = 16,
    ERROR_COULDNOTDECODE = 17,
    ERROR_NOEXTRADATA = 18,
    ERROR_COULDNOTADDREFERENCE = 19,
    ERROR_INTERNAL = 20,
    ERROR_ISCHECKEDOUT = 21,
    ERROR_ISNOTCHECKEDOUT = 22,
    ERROR_COULDNOTGATHERFILEINFO = 23,
    ERROR_NOPRECHECKINSTATE = 24
  };

  virtual qz::string GetTargetPlatform() const = 0;
  virtual std::list<qz::string> EnumerateSampleFormats() const = 0;
  virtual SDSetupInterface* GetSetupInterface() = 0;

  // Brings the sound file `originalname` in as the sample of `qualClass`. A class that the node has
  // keeps its format and gets new files. The file's present state is never changed: all files of
  // the node move to a new folder by copying.
  virtual SDError ImportSample(const qz::string& originalname, uchar formatIndex,
                               const qz::string& qualClass) = 0;
  // Gives one reference of the class back, if it has any.
  virtual SDError RemoveSample(const qz::string& qualClass) = 0;
  virtual SDError ChangeSampleFormat(const qz::string& qualClass, uchar formatIndex) = 0;

  // Data of one channel (0 to numChannels - 1), read afresh at each call; null on failure.
  // Raw: as many values as the raw file has samples per channel, and at least the length that
  // GetOriginalSampleInformation tells.
  virtual short* GetRawData(const qz::string& qualClass, uchar channel) const = 0;
  // `size` in bytes.
  virtual void* GetEncodedData(const qz::string& qualClass, uchar channel, ulong& size) const = 0;
  // Decoded: `length` values for the PCM formats; for the ADPCM family `length` rounded up to a
  // multiple of 14. The result alone tells success: PCM leaves ERROR_NOEXTRADATA behind.
  virtual short* GetDecodedData(const qz::string& qualClass, uchar channel) const = 0;

  // Numbers of the encoded file and of the raw file. `info` is filled and given back, or null.
  virtual SDInfo* GetSampleInformation(const qz::string& qualClass, SDInfo& info) const = 0;
  virtual SDInfo* GetOriginalSampleInformation(const qz::string& qualClass, SDInfo& info) const = 0;

  // The node's classes in import order.
  virtual std::list<qz::string> GetQualityClasses() const = 0;
  virtual qz::string GetSelQualityClass() const = 0;
  virtual bool SetSelQualityClass(const qz::string& _selQualityClass) = 0;

  // Check-out copies the raw files to a folder for editing and locks the node's sample set;
  // check-in takes them back, from `fromFolder` or from where they went.
  virtual SDError CheckIn(const qz::string& fromFolder) = 0;
  virtual SDError CheckIn() = 0;
  virtual SDError CheckOut(const qz::string& toFolder) const = 0;
  virtual SDError UndoCheckIn() = 0;
  virtual SDError UndoCheckOut() const = 0;
  virtual SDError RedoCheckOut() const = 0;
  virtual bool IsCheckedOut() const = 0;
  virtual bool CanUndoCheckIn() const = 0;

 protected:
  SDAccessInterface() = default;
  ~SDAccessInterface() = default;
  SDAccessInterface(const SDAccessInterface&) = default;
  SDAccessInterface& operator=(const SDAccessInterface&) = default;
};

// What is of this target platform alone.
class SDTarvaneAccessInterface : public SDAccessInterface {
 public:
  enum SDExtraType { EXTRADATA_NONE = 0, EXTRADATA_ADPCM = 1, EXTRADATA_ADPCMPLUS = 2 };

  enum SDCompType : qz::ulong {
    COMPTYPE_NONE = 0,
    COMPTYPE_RAW = 1,
    COMPTYPE_ADPCM = 2,
    COMPTYPE_ADPCMPLUS = 3,
    COMPTYPE_RAW8 = 4,
    COMPTYPE_ADPCMVS = 5
  };

  // What the console's decoder needs beside the frames of a channel.
  class SDExtraData {
   public:
    struct ADPCM {
      short coefTable[16];
      ushort numCoef;  // rows
      ushort order;
      short loopY0;  // history at the loop start; 0 without a loop
      short loopY1;
      uchar loopPS;     // header byte of the loop start's frame; 0 without a loop
      uchar initialPS;  // header byte of the first frame
    };
    struct ADPCMPLUS {
      short coefTable[16];
      ushort numCoef;
      ushort order;
      short loopY0;
      short loopY1;
      uchar loopPS;
      uchar initialPS;
      ulong numBlocks;
      short* blockY0;  // `numBlocks` values each, owned: history at each frame's start
      short* blockY1;
    };
    union {
      ADPCM adpcm;
      ADPCMPLUS adpcmp;
    } data;
    SDExtraType type;

    SDExtraData() : type(EXTRADATA_NONE) {}
    SDExtraData(const SDExtraData&) = delete;
    SDExtraData& operator=(const SDExtraData&) = delete;
    ~SDExtraData() {
      if (type != EXTRADATA_ADPCMPLUS) return;
      std::free(data.adpcmp.blockY0);
      std::free(data.adpcmp.blockY1);
    }
  };

  // Null for the PCM formats, with ERROR_NOEXTRADATA.
  virtual SDExtraData* GetExtraData(const qz::string& qualClass, uchar channel) const = 0;

 protected:
  SDTarvaneAccessInterface() = default;
  ~SDTarvaneAccessInterface() = default;
  SDTarvaneAccessInterface(const SDTarvaneAccessInterface&) = default;
  SDTarvaneAccessInterface& operator=(const SDTarvaneAccessInterface&) = default;
};

#endif  // PUBLICINCLUDES_KELVO_TARVANESAMPLEDATA_H_
