// Encoded files through every data operation of a sample node: the file's bytes; one each for the
// channel, the format and the length that the node has stored; and one that chooses a failing
// allocation.
#include "fuzz/node_host.h"

namespace {

// The one sample of the node, as a load would have made it.
SDSample& AddSample(SDAccess& node) {
  SDSampleList& list = SDTestAccess::Samples(node);
  SDSample& sample = list.emplace_back();
  sample.qualClass = "Low";
  sample.fileName = "samples\\a\\Low.wav";
  sample.numChannels = 2;
  return sample;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::uint8_t fault = input.TakeByte();
  fuzz::NodeHost database(fuzz::Drive::Instance());
  SDSample& sample = AddSample(database.Sample());
  sample.info.length = sample.encodedInfo.length = input.TakeByte();
  sample.compType = static_cast<SDCompType>(input.TakeByte() % 7);
  const qz::uchar channel = input.TakeByte();
  fuzz::Drive::Instance().Put("db/samples/a/Low.esmp", std::string(input.Bytes()));

  const qz::string qualClass = "Low";
  const fuzz::Faults faults(fault);
  SDCompType stored = SDAccess::COMPTYPE_NONE;
  try {
    SDTestAccess::ReadEncodedSampleInfo(database.Sample(), sample, &sample.encodedInfo, stored);
  } catch (const std::bad_alloc&) {
    // Only operations of the interface turn it into a code.
    fuzz::Check(faults.Fired(), "memory is there");
  }
  fuzz::ReadAll(database.Sample(), qualClass, channel);
  return 0;
}
