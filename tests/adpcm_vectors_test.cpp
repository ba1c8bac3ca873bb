// Whole streams against what an independent implementation of the same arithmetic gave, and
// against the checked-in hashes of generated sounds.
#include <gtest/gtest.h>

#include <fstream>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "tests/adpcm_sounds.h"
#include "tests/adpcm_stream.h"

namespace {

std::string Hex(const std::vector<qz::uchar>& bytes) {
  std::ostringstream text;
  for (const int byte : bytes)
    text << std::hex << std::setw(2) << std::setfill('0') << byte;
  return text.str();
}

TEST(CodecVectors, EveryStreamIsEncodedAndDecodedToTheByte) {
  std::ifstream file(TEST_DATA "/codec_vectors.json");
  const nlohmann::json vectors = nlohmann::json::parse(file);
  ASSERT_GT(vectors.size(), 20u);
  for (const auto& vector : vectors) {
    SCOPED_TRACE(vector["name"].get<std::string>());
    const EncodedStream stream = EncodeStream(vector["samples"].get<std::vector<short>>(),
                                              vector["loopStart"].get<qz::ulong>());
    ASSERT_TRUE(stream.ok);
    EXPECT_EQ(stream.table, vector["table"].get<std::vector<short>>());
    EXPECT_EQ(Hex(stream.frames), vector["frames"].get<std::string>());
    EXPECT_EQ(stream.y0, vector["y0"].get<std::vector<short>>());
    EXPECT_EQ(stream.y1, vector["y1"].get<std::vector<short>>());
    EXPECT_EQ(stream.loop, (LoopState{vector["loopY0"], vector["loopY1"], vector["loopScale"],
                                      vector["loopIndex"]}));
    EXPECT_EQ(stream.decoded, vector["decoded"].get<std::vector<short>>());
  }
}

TEST(CodecHashes, GeneratedSoundsGiveTheListedHashes) {
  std::ifstream list(TEST_DATA "/codec_hashes.txt");
  std::string name;
  qz::uint64 hash = 0;
  for (const sounds::Sound& sound : sounds::All()) {
    ASSERT_TRUE(list >> name >> std::hex >> hash);
    ASSERT_EQ(name, sound.name) << "list and generator are out of step";
    EXPECT_EQ(HashStream(EncodeStream(sound.samples, sound.loopStart)), hash) << name;
  }
  EXPECT_FALSE(list >> name) << "listed, but not generated: " << name;
}

}  // namespace
