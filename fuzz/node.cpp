// Stored sample nodes: bytes of a node file, or of what a database holds of it; a byte that says
// which; and one that chooses a failing allocation.
#include "fuzz/node_host.h"

namespace {

constexpr int kLooksAtClasses = 3;

void LookAt(const SDAccess& node, std::uint8_t fault) {
  const fuzz::Faults faults(fault);
  int left = kLooksAtClasses;
  for (const qz::string& qualClass : node.GetQualityClasses()) {
    if (left-- == 0) break;
    fuzz::ReadAll(node, qualClass, 1);
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::uint8_t fault = input.TakeByte();
  const bool ownFile = (input.TakeByte() & 1) != 0;
  {
    fuzz::NodeHost database(fuzz::Drive::Instance());
    const bool loaded =
        fuzz::LoadStored(database, database.SampleNode(), input.Bytes(), ownFile, fault);
    LookAt(database.Sample(), fault);
    if (loaded) fuzz::CheckSaveAndLoad(database.SampleNode());
  }
  fuzz::Check(fuzz::Drive::Instance().Restore(), "a load makes no folder");
  return 0;
}
