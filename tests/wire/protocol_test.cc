#include "host/wire/protocol.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace qdt::host {
namespace {

using State = FrameReader::State;
using std::string_literals::operator""s;

TEST(EncodeFrame, WritesLittleEndianHeaderAndText) {
  EXPECT_EQ(EncodeFrame(kRequestMark, "abc"), "\x03\0\0\0NQE1abc"s);
  EXPECT_EQ(EncodeFrame(static_cast<uint32_t>(-2), ""), "\0\0\0\0\xfe\xff\xff\xff"s);
  EXPECT_EQ(EncodeFrame(0, std::string(0x10203, 'x')).substr(0, 8), "\x03\x02\x01\0\0\0\0\0"s);
}

TEST(FrameReader, CutsFramesOutOfAnyPieces) {
  const std::string stream = "\x02\0\0\0\x01\0\0\0hi\0\0\0\0\x02\0\0\0\x01\0\0\0\x03\0\0\0!"s;
  for (size_t piece = 1; piece <= stream.size(); ++piece) {
    FrameReader reader;
    std::string seen;
    for (size_t at = 0; at < stream.size(); at += piece) {
      const std::string part = stream.substr(at, piece);
      reader.Append(part.data(), part.size());
      Frame frame;
      while (reader.Next(&frame) == State::kFrame) seen += std::to_string(frame.word) + frame.text + ";";
    }
    EXPECT_EQ(seen, "1hi;2;3!;") << "pieces of " << piece;
    EXPECT_TRUE(reader.Empty());
  }
}

TEST(FrameReader, ShowsTheWordBeforeTheText) {
  FrameReader reader;
  uint32_t word = 0;
  reader.Append("\xff\xff\0\0\x07\0\0", 7);
  EXPECT_FALSE(reader.PeekWord(&word));
  reader.Append("\0", 1);
  ASSERT_TRUE(reader.PeekWord(&word));
  EXPECT_EQ(word, 7u);
  Frame frame;
  EXPECT_EQ(reader.Next(&frame), State::kNeedMore);
  EXPECT_FALSE(reader.Empty());
}

TEST(FrameReader, BoundsTheLength) {
  Frame frame;
  FrameReader exact;
  const std::string full = "\0\0\x10\0\x01\0\0\0"s + std::string(1 << 20, 'x');
  exact.Append(full.data(), full.size());
  ASSERT_EQ(exact.Next(&frame), State::kFrame);
  EXPECT_EQ(frame.text.size(), 1u << 20);

  FrameReader above;
  above.Append("\x01\0\x10\0\x01\0\0\0", 8);
  EXPECT_EQ(above.Next(&frame), State::kTooLong);
}

}  // namespace
}  // namespace qdt::host
