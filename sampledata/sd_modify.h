// Brackets of a change of a node, so that every way out of an operation closes what it opened.
#ifndef SAMPLEDATA_SD_MODIFY_H_
#define SAMPLEDATA_SD_MODIFY_H_

#include <memory>
#include <new>

#include "PublicIncludes/kelvo_data.h"
#include "sampledata/sd_intern.h"

// An undo record in the making. It owns its snapshot until the host takes it.
class UndoRecord {
 public:
  // `description` as the string table gives it. Fetched ahead of the change: behind it nothing may
  // fail.
  UndoRecord(SDUndoAction action, const qz::string& description, std::unique_ptr<SDUndo> snapshot)
      : snapshot_(std::move(snapshot)) {
    info_.ID = action;
    info_.description = description;
  }

 private:
  friend class Modification;
  HDBUndoInfo info_;
  std::unique_ptr<SDUndo> snapshot_;
};

// A change that the host has opened. Unless it is closed with a record, it closes without one:
// the host then sees no undoable step.
class Modification {
 public:
  explicit Modification(HDBBaseNodeInterface* node) : node_(node), open_(node->BeginModify()) {}
  Modification(const Modification&) = delete;
  Modification& operator=(const Modification&) = delete;
  ~Modification() {
    if (open_) node_->EndModify(nullptr);
  }

  // False where the host refused; nothing is to be closed then.
  bool IsOpen() const { return open_; }

  // Closes the change; the record's snapshot is the host's from here on.
  void CloseWith(UndoRecord& record) {
    open_ = false;
    record.info_.data = record.snapshot_.release();
    node_->EndModify(&record.info_);
  }

 private:
  HDBBaseNodeInterface* node_;
  bool open_;
};

#endif  // SAMPLEDATA_SD_MODIFY_H_
