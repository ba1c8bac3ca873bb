// The whole chain: a sound file is imported, encoded in five formats, read back and decoded, and
// goes with the database. The file's bytes; one that chooses the format of the import; and one that
// chooses a failing allocation. Files that promise more samples than they hold are passed over, as
// hosts do.
#include "fuzz/node_host.h"
#include "host/sound_check.h"

namespace {

constexpr qz::uchar kFormats = 5;

// Ready before any allocation can fail.
const qz::string source = "S:\\source.wav";
const qz::string qualClass = "High";

void EncodeInAllFormats(SDAccess& node, qz::uchar first) {
  if (node.ImportSample(source, first, qualClass) != SDAccess::ERROR_OK) {
    fuzz::Check(node.GetQualityClasses().empty(), "a failed import leaves nothing");
    return;
  }
  SDInfo info;
  for (qz::uchar i = 0; i < kFormats; ++i) {
    if (i != 0) node.ChangeSampleFormat(qualClass, static_cast<qz::uchar>(1 + (first + i) % 5));
    node.GetOriginalSampleInformation(qualClass, info);
    fuzz::ReadAll(node, qualClass, 0);
    if (info.numChannels > 1) {
      fuzz::ReadAll(node, qualClass, static_cast<qz::uchar>(info.numChannels - 1));
    }
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::uint8_t fault = input.TakeByte();
  const auto first = static_cast<qz::uchar>(1 + input.TakeByte() % kFormats);
  fuzz::Drive::Instance().Put("source.wav", std::string(input.Bytes()));
  {
    const fuzz::Faults sizesAlone(0);
    if (samplehost::CheckSoundFile(source.c_str()).has_value()) return 0;
  }
  {
    fuzz::NodeHost database(fuzz::Drive::Instance());
    const fuzz::Faults faults(fault);
    EncodeInAllFormats(database.Sample(), first);
  }
  const bool clean = fuzz::Drive::Instance().Restore();
  fuzz::Check(clean || fuzz::Faults::Fired(), "a flagged close leaves no folder");
  return 0;
}
