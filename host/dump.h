// What stands in a file of ours, field by field with offsets: encoded samples (.esmp), node files
// of sample and setup nodes, WAV, AIFF and MORT. docs/formats/ has a page for each.
//
// For people who look for damage, so nothing in the file is believed: sizes are tried against the
// file before anything is read or allocated, and what can be read in front of a damage is shown.
#ifndef HOST_DUMP_H_
#define HOST_DUMP_H_

#include <iosfwd>
#include <string>

namespace samplehost {

// Writes the file at a native path to `out`, a line a field: offset, bytes, name, value. Long runs
// of frames and samples are shown by their beginning. Lines that start with "!" are damage, where
// it was found; what is unusual but harmless is told beside its value.
//
// False where the file cannot be read, is of no kind that this knows, or is damaged; `problem` is
// then the first thing wrong and where. Throws nothing but what `out` throws, and what an exhausted
// heap does.
bool DumpFile(const std::string& nativePath, std::ostream& out, std::string& problem);

}  // namespace samplehost

#endif  // HOST_DUMP_H_
