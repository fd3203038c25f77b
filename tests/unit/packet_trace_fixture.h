#ifndef TESTS_UNIT_PACKET_TRACE_FIXTURE_H_
#define TESTS_UNIT_PACKET_TRACE_FIXTURE_H_

#include <cstring>
#include <string>
#include <vector>

#include "qdt/trace.h"
#include "tests/unit/trace_block_fixture.h"

namespace qdt::test {

// The packet-trace command.
class PacketTraceTest : public TraceBlockTest {
 protected:
  using Words = std::vector<std::string>;

  // What the command answers to these words behind its name; `result` is what it returned.
  std::string Run(const Words &words) {
    std::vector<char *> pointers = {const_cast<char *>("pkt_trace")};
    for (const std::string &word : words) pointers.push_back(const_cast<char *>(word.c_str()));
    return Capture([&](OutputBuffer *out) {
      out->buf[0] = '#';  // what stood there before must not count
      out->len = 77;
      result = VrxPktTraceCmdRun(out, static_cast<int32_t>(pointers.size()), pointers.data());
    });
  }

  // What an operation appends.
  template <typename Operation>
  static std::string Capture(Operation operation) {
    static char area[QDT_OUTPUT_CAPACITY];
    std::memset(area, '#', 4096);
    area[0] = '\0';
    OutputBuffer out = {area, 0};
    operation(&out);
    EXPECT_EQ(std::strlen(out.buf), out.len);
    return out.buf;
  }

  // A set that must fail: its line stands alone and the block stays as it is.
  void ExpectRefused(const Words &words, const std::string &message) {
    const Bytes before = BlockBytes();
    EXPECT_EQ(Run(words), message) << words[1];
    EXPECT_EQ(result, 0) << words[1];
    EXPECT_EQ(BlockBytes(), before) << words[1];
  }

  // A set that must succeed on a zeroed block, with what the block holds then.
  void ExpectSet(const Words &words, const std::string &confirmation, const Record &block) {
    ClearBlock();
    const std::string what = words[1] + (words.size() > 2 ? " " + words[2] : "");
    EXPECT_EQ(Run(words), confirmation) << what;
    EXPECT_EQ(result, -1) << what;
    ExpectBlock(block, what);
  }
};

}  // namespace qdt::test

#endif  // TESTS_UNIT_PACKET_TRACE_FIXTURE_H_
