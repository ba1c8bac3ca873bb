// What a stream writes and reads back: a program of operations, each a byte with what it takes
// behind it; a byte for the byte order; and one that chooses a failing allocation.
#include <new>
#include <string>
#include <vector>

#include "fuzz/fuzz.h"
#include "host/stream.h"

namespace {

using fuzz::Check;
using samplehost::MemoryStream;

std::string WithReturns(std::string_view text) {
  std::string lines;
  for (const char c : text) {
    if (c == '\n') lines += '\r';
    lines += c;
  }
  return lines;
}

// Runs the program on `stream`. Texts that went in with their zero byte are added to `written`,
// which is complete as long as no other operation came.
bool Write(MemoryStream& stream, fuzz::Input& input, std::vector<std::string>& written) {
  bool onlyTexts = true;
  while (!input.Bytes().empty()) {
    const std::string rest(input.TakeText());
    const int operation = rest.empty() ? 0 : rest[0] & 15;
    const std::string narrow = rest.substr(rest.empty() ? 0 : 1);
    const qz::string text(narrow.c_str());
    const auto number = static_cast<qz::slong>(narrow.size() * 0x01234567u);
    if (operation < 6) {
      if (!stream.WriteStringZ("%s", text.c_str())) return false;
      written.push_back(WithReturns(narrow));
      continue;
    }
    onlyTexts = false;
    switch (operation) {
      case 6:
        stream.WriteString("%s", text.c_str());
        break;
      case 7:
        stream.WriteString("%d: %*s\n%.3s%%", number, narrow.size() % 8 == 7 ? 1100 : 20,
                           text.c_str(), text.c_str());
        break;
      case 8:
        stream.SetLabel(text);
        break;
      case 9:
        stream.WriteLabel(text);
        break;
      case 10:
        stream.SetPosition(qz::uint64{narrow.size()}, DIOFile::SEEKMODE_START);
        break;
      case 11:
        stream.SetPosition(-static_cast<qz::slong>(narrow.size()), DIOFile::SEEKMODE_CURRENT);
        break;
      case 12:
        stream.Write(narrow.data(), 1u << (number & 3), static_cast<qz::ulong>(narrow.size() / 8));
        break;
      case 13: {
        MemoryStream source({narrow.begin(), narrow.end()});
        Check(stream.Insert(&source) || narrow.empty() || fuzz::Faults::Fired(), "all is copied");
        break;
      }
      case 14:
        stream.SetLabelMode(narrow.empty() ? DIOFile::LABELMODE_SHORT : DIOFile::LABELMODE_LONG);
        break;
      default:
        stream.Write(number);
        stream.Write(static_cast<double>(number));
    }
  }
  return onlyTexts;
}

void Read(MemoryStream& stream, unsigned elemSize) {
  qz::uint64 buffer[8];
  stream.Read(buffer, elemSize, 8);
  qz::string text;
  while (stream.ReadString(text)) {
  }
  qz::uint64 position = 0;
  Check(stream.GetPosition(position), "memory has a position");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const fuzz::Faults faults(input.TakeByte());
  const unsigned flags = input.TakeByte();
  try {
    MemoryStream stream;
    stream.SetEndian((flags & 1) != 0 ? DIOFile::ENDIAN_BIG : DIOFile::ENDIAN_LITTLE);
    std::vector<std::string> written;
    const bool onlyTexts = Write(stream, input, written);
    Check(stream.Finish() || faults.Fired(), "labels can be filled in");

    MemoryStream reader(stream.bytes());
    if (!onlyTexts) {
      Read(reader, flags >> 1);
      return 0;
    }
    for (const std::string& expected : written) {
      qz::string text;
      const bool read = reader.ReadString(text);
      Check((read && text.c_str() == expected) || faults.Fired(), "a text is read as written");
    }
  } catch (const std::bad_alloc&) {
    Check(faults.Fired(), "memory is there");
  }
  return 0;
}
