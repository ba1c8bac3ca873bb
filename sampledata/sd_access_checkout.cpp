// Check-out and check-in are not offered yet: every operation refuses and changes nothing.
#include "sampledata/sd_access.h"

SDAccess::SDError SDAccess::CheckIn(const qz::string&) {
  return SetError(ERROR_INTERNAL);
}
SDAccess::SDError SDAccess::CheckIn() {
  return SetError(ERROR_INTERNAL);
}
SDAccess::SDError SDAccess::CheckOut(const qz::string&) const {
  return SetError(ERROR_INTERNAL);
}
SDAccess::SDError SDAccess::UndoCheckIn() {
  return SetError(ERROR_INTERNAL);
}
SDAccess::SDError SDAccess::UndoCheckOut() const {
  return SetError(ERROR_INTERNAL);
}
SDAccess::SDError SDAccess::RedoCheckOut() const {
  return SetError(ERROR_INTERNAL);
}
bool SDAccess::IsCheckedOut() const {
  return checkedOut;
}
bool SDAccess::CanUndoCheckIn() const {
  return !lastPreCheckOutInternalName.empty();
}
