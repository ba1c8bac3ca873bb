// A stream of our own that ends with its scope.
#ifndef SAMPLEDATA_SD_STREAM_H_
#define SAMPLEDATA_SD_STREAM_H_

#include "diskio/diskio.h"

class Stream {
 public:
  // Tells false afterwards where the file could not be opened.
  Stream(const qz::string& name, DIOFile::DIOOpenMode mode)
      : file_(DIOFile::OpenFile(name, mode)) {}
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;
  ~Stream() { Close(); }

  // Ends the stream ahead of its scope; the result is CloseFile's, true for one that has ended.
  bool Close() { return file_ == nullptr || DIOFile::CloseFile(file_); }

  explicit operator bool() const { return file_ != nullptr; }
  DIOFile* operator->() const { return file_; }
  DIOFile* get() const { return file_; }

 private:
  DIOFile* file_;
};

#endif  // SAMPLEDATA_SD_STREAM_H_
