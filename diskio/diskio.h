// DIOFile: the stream through which every structured file is read and written, and the services on
// files and paths.
//
// The host hands the same abstract class to a node's Load and Save, so the order of the virtual
// operations is a contract between host and library.
//
// Nothing here throws or prints; failures are `false` or null, without a reason. Copies alone, of
// texts and of a DIOFileInfo, can throw std::bad_alloc.
#ifndef DISKIO_DISKIO_H_
#define DISKIO_DISKIO_H_

#include "common/qzclasses.h"
#include "common/qztypes.h"

class DIOFile {
 public:
  using uchar = qz::uchar;
  using ushort = qz::ushort;
  using ulong = qz::ulong;
  using slong = qz::slong;
  using int64 = qz::int64;
  using uint64 = qz::uint64;

  enum DIOEndianType { ENDIAN_BIG = 0, ENDIAN_LITTLE = 1 };

  enum DIOOpenMode {
    OPENMODE_OPEN = 0,    // read only; the file must exist
    OPENMODE_CREATE = 1,  // read and write; an older file of that name is deleted first
    OPENMODE_MODIFY = 2,  // read and write; the file must exist
    OPENMODE_APPEND = 3   // as MODIFY, positioned at the end
  };

  enum DIOSeekMode { SEEKMODE_START = 0, SEEKMODE_CURRENT = 1, SEEKMODE_END = 2 };

  enum DIOLabelMode { LABELMODE_SHORT = 0, LABELMODE_LONG = 1 };

  // The result of Execute.
  enum DIOError {
    ERROR_OK = 0,                    // the child ran, and its exit code is known
    ERROR_COULDNOTGETRESULT = 1,     // reserved; nothing sets it
    ERROR_COULDNOTEXECUTE = 2,       // the child, or the thread that waits for it, did not start
    ERROR_NORESULTKNOWN = 3,         // the child ran, but its exit code could not be read
    ERROR_COULDNOTCAPTUREOUTPUT = 4  // its output could not be read; the run was given up
  };

  // Takes the next byte that a child wrote. Must not throw.
  using DIOCallback = void (*)(char byte);

  struct v32 {
    float x, y, z;
  };

  // A calendar time in UTC. `dayOfWeek` (0 is Sunday) takes no part in the relations.
  struct DIOFileTime {
    ushort year, month, dayOfWeek, day, hour, minute, second, milliseconds;

    bool operator==(const DIOFileTime& other) const;
    bool operator!=(const DIOFileTime& other) const;
    bool operator<(const DIOFileTime& other) const;
    bool operator>(const DIOFileTime& other) const;
    bool operator<=(const DIOFileTime& other) const;
    bool operator>=(const DIOFileTime& other) const;
  };

  enum DIOAttribute : ulong {
    ATTRIBUTE_ARCHIVE = 1,
    ATTRIBUTE_HIDDEN = 2,
    ATTRIBUTE_READONLY = 4,
    ATTRIBUTE_SYSTEM = 8,
    ATTRIBUTE_TEMPORARY = 16
  };

  // One entry of a folder, filled by a search. A copy gets a search record of its own on the same
  // platform search; the destructor frees the record but does not end the search: FindClose does.
  struct DIOFileInfo {
    DIOFileInfo() = default;
    DIOFileInfo(const DIOFileInfo& other);
    DIOFileInfo& operator=(const DIOFileInfo& other);
    ~DIOFileInfo();

    qz::string fullName;       // as the search reports it, without a folder
    qz::string pathName;       // the folder that holds the entry, absolute, with its separator
    qz::string baseName;       // the last component of the entry's absolute path
    qz::string shortName;      // the 8.3 name, or empty
    uint64 size = 0;           // bytes
    DIOFileTime timeCreate{};  // UTC, as are the two below
    DIOFileTime timeAccess{};
    DIOFileTime timeWrite{};
    bool isDir = false;
    ulong attributes = 0;               // of DIOAttribute
    const void* privateData = nullptr;  // the open search, or null
  };

  // --- Making and ending streams ---

  // Opens `name` without sharing: while the stream is open, every other open of that file fails.
  // Null on failure. The caller owns the stream and ends it with CloseFile.
  static DIOFile* OpenFile(const qz::string& name, DIOOpenMode mode);

  // Fills the label references that wait, closes and destroys the stream and clears the caller's
  // pointer, whatever the result. False where a reference could not be written or the close
  // failed. `file` must not be null, and must come from OpenFile.
  static bool CloseFile(DIOFile*& file);

  // --- The stream, in slot order. `bool` results: true for success. ---

  // Byte order in the file from here on; a stream starts ENDIAN_LITTLE.
  virtual void SetEndian(DIOEndianType endian) = 0;
  virtual DIOOpenMode GetAccessMode() = 0;
  // UTC. On failure none of the three changes.
  virtual bool GetFileTime(DIOFileTime& creation, DIOFileTime& access, DIOFileTime& write) = 0;
  virtual bool GetFileSize(uint64& size) = 0;
  // Fails at 4 GiB or more.
  virtual bool GetFileSize(ulong& size) = 0;
  virtual bool GetPosition(uint64& pos) = 0;
  // Fails where the position's low half is 0xFFFFFFFF.
  virtual bool GetPosition(ulong& pos) = 0;
  // Signed distances in all four forms: an unsigned argument is the same bit pattern.
  virtual bool SetPosition(int64 distance, DIOSeekMode mode) = 0;
  virtual bool SetPosition(uint64 distance, DIOSeekMode mode) = 0;
  virtual bool SetPosition(slong distance, DIOSeekMode mode) = 0;
  virtual bool SetPosition(ulong distance, DIOSeekMode mode) = 0;

  // `numElem` elements of `elemSize` 1, 2, 4 or 8 bytes, each in the stream's byte order; another
  // size is false and nothing moves. After a short read the whole elements that were there stay
  // transferred, and the result is false.
  virtual bool Read(void* buffer, ulong elemSize, ulong numElem) = 0;
  virtual bool Read(char& value) = 0;
  virtual bool Read(uchar& value) = 0;
  virtual bool Read(short& value) = 0;
  virtual bool Read(ushort& value) = 0;
  virtual bool Read(slong& value) = 0;
  virtual bool Read(ulong& value) = 0;
  virtual bool Read(int64& value) = 0;
  virtual bool Read(uint64& value) = 0;
  virtual bool Read(float& value) = 0;
  virtual bool Read(double& value) = 0;
  virtual bool Read(v32& value) = 0;
  // Bytes of the narrow code page up to a zero byte, which is taken too. At the end of the file:
  // false, with the text so far in `str`.
  virtual bool ReadString(qz::string& str) = 0;

  virtual bool Write(const void* buffer, ulong elemSize, ulong numElem) = 0;
  virtual bool Write(char value) = 0;
  virtual bool Write(uchar value) = 0;
  virtual bool Write(short value) = 0;
  virtual bool Write(ushort value) = 0;
  virtual bool Write(slong value) = 0;
  virtual bool Write(ulong value) = 0;
  virtual bool Write(int64 value) = 0;
  virtual bool Write(uint64 value) = 0;
  virtual bool Write(float value) = 0;
  virtual bool Write(double value) = 0;
  virtual bool Write(const v32& value) = 0;
  // `string` is a printf format for the arguments behind it; pass literal text as the argument of
  // a "%s". Each line feed leaves as CR LF. WriteStringZ adds one zero byte and is what ReadString
  // takes. A formatted text of 128 KiB or more beyond the format's length is false, and nothing is
  // written.
  virtual bool WriteString(const qz::string& string, ...) = 0;
  virtual bool WriteStringZ(const qz::string& string, ...) = 0;

  // Copies from the source's position to this one's, over what stands there: all that is left
  // (false where nothing is), or `length` bytes.
  virtual bool Insert(DIOFile* source) = 0;
  virtual bool Insert(DIOFile* source, uint64 length) = 0;

  // Labels name positions of a stream that is being written (see diskio_intern.h).
  virtual void SetLabelMode(DIOLabelMode mode) = 0;
  // Names the current position; a name that exists keeps its first position.
  virtual bool SetLabel(const qz::string& name) = 0;
  // The label's position, or all bits set.
  virtual uint64 GetLabel(const qz::string& name) const = 0;
  // Writes the label's position as a number: 4 bytes (LABELMODE_SHORT, the start) or 8. A label
  // that does not exist yet leaves zeros, which CloseFile fills.
  virtual bool WriteLabel(const qz::string& name) = 0;

  // --- Files and paths. Paths are at most 259 bytes in narrow form. ---

  // Deletes a file or an empty folder. A read-only file is refused.
  static bool Delete(const qz::string& name);
  // One level.
  static bool CreateDirectoryA(const qz::string& name);
  // Makes every folder of `path` that is missing; with `isFilename` the last component is a file
  // and is left out. Folders made before a failure stay.
  static bool CreatePath(const qz::string& path, bool isFilename);
  static bool Rename(const qz::string& oldName, const qz::string& newName);
  // Never overwrites.
  static bool Copy(const qz::string& srcName, const qz::string& destName);

  // Opens a search and fills `info` with its first entry; FindClose ends it. False, with no search
  // open, where nothing is found. FindNext is false at the end, and `info` keeps the last entry.
  static bool FindFirst(const qz::string& mask, DIOFileInfo& info);
  static bool FindNext(DIOFileInfo& info);
  static bool FindClose(DIOFileInfo& info);

  // The absolute form of `name`. On failure `buffer` stays as it was.
  static bool ExpandPath(const qz::string& name, qz::string& buffer);
  // Forward slashes become backslashes, "." components and doubled separators go; ".." stays, as
  // does a leading pair of backslashes. Always true.
  static bool CleanupPath(qz::string& path);
  // From folder to folder. On failure `relPath` is emptied.
  static bool MakeRelativePath(qz::string& relPath, const qz::string& fromPath,
                               const qz::string& toPath);
  // Each end is a folder only if its flag says so. On failure `path` is unchanged.
  static bool MakeRelativePath(qz::string& path, const qz::string& from, bool fromFolder,
                               const qz::string& to, bool toFolder);
  // The same text after cleaning, case aside. The file system is not asked.
  static bool PathsIdentical(const qz::string& path1, const qz::string& path2);
  // `path` without trailing separator (but for a root), `base` the last component.
  static void SplitName(const qz::string& full, qz::string& path, qz::string& base);
  // Cuts `name` in front of its last dot, wherever that is; `extension` gets what follows. Without
  // a dot: false, `name` unchanged, `extension` empty.
  static bool ChopExtension(qz::string& name, qz::string& extension);
  // Makes an empty file in the temporary folder, which is the caller's; empty text on failure.
  static qz::string CreateUniqueTempName();
  static bool GetCurrentDirectoryA(qz::string& buffer);
  static bool ChangeDirectory(const qz::string& directory);

  // --- Other programs ---

  // Runs the command line `cmd` without a shell, waits for the child's end and puts its exit code
  // into `result`, which is touched with ERROR_OK alone. A child that fails is no failure here.
  //
  // Where the platform allows it `stdOut` and `errOut`, which may be null, get what the child
  // writes to its standard output and its standard error, on the calling thread, one call a byte:
  // each stream in its order, the two in any. What the child wrote before its end arrives before
  // the return; what other programs write later to streams that it left them does not, and they
  // are not waited for. What a null callback does not take is read and dropped.
  //
  // After ERROR_COULDNOTCAPTUREOUTPUT a child that was started runs on, with its output closed.
  // One run at a time in a process: another one that begins meanwhile, from a callback too, gets
  // that error and starts nothing. For the length of a run the standard handles of the process are
  // the run's.
  static DIOError Execute(const qz::string& cmd, ulong& result, DIOCallback stdOut,
                          DIOCallback errOut);

 protected:
  DIOFile() = default;
  ~DIOFile() = default;
  DIOFile(const DIOFile&) = default;
  DIOFile& operator=(const DIOFile&) = default;
};

#endif  // DISKIO_DISKIO_H_
