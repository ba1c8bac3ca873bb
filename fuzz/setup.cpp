// Stored setup nodes: bytes of a node file, or of what a database holds of it; a byte that says
// which; and one that chooses a failing allocation.
#include "fuzz/node_host.h"

namespace {

void LookAt(const SDSetup& setup) {
  const std::list<qz::string> classes = setup.EnumerateQualityClasses();
  fuzz::Check(setup.GetNumQualityClasses() == classes.size(), "classes are counted");
  int last = -1;
  qz::uchar index = 0;
  for (const qz::string& listed : classes) {
    qz::string name;
    const auto level = static_cast<qz::uchar>(setup.GetQualityClassLevel(listed));
    fuzz::Check(setup.GetQualityClassName(index++, name) && name == listed, "names are in order");
    fuzz::Check(level > last && setup.ProbeQualityClass(level), "levels ascend");
    last = level;
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::uint8_t fault = input.TakeByte();
  const bool ownFile = (input.TakeByte() & 1) != 0;
  fuzz::NodeHost database(fuzz::Drive::Instance());
  fuzz::LoadStored(database, database.SetupNode(), input.Bytes(), ownFile, fault);
  LookAt(database.Setup());
  fuzz::CheckSaveAndLoad(database.SetupNode());
  return 0;
}
