#include "host/netconf/framing.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace qdt::host {
namespace {

using State = MessageReader::State;
using Strings = std::vector<std::string>;

constexpr size_t kLimit = 64;

// What comes of the bytes when they arrive in pieces of this size: messages, "(too big) BEGINNING" and
// "(broken)".
Strings Read(bool chunked, const std::string &bytes, size_t piece) {
  MessageReader reader(kLimit);
  if (chunked) reader.ExpectChunks();
  Strings read;
  for (size_t at = 0; at < bytes.size(); at += piece) {
    reader.Append(std::string_view(bytes).substr(at, piece));
    std::string message;
    for (State state; (state = reader.Next(&message)) != State::kNeedMore;) {
      if (state == State::kMessage) read.push_back(message);
      if (state == State::kTooBig) read.push_back("(too big) " + message.substr(0, 3));
      if (state == State::kBroken) read.push_back("(broken)");
    }
  }
  return read;
}

// However the bytes are cut.
void Expect(bool chunked, const std::string &bytes, const Strings &expected) {
  for (size_t piece = 1; piece <= bytes.size(); ++piece)
    EXPECT_EQ(Read(chunked, bytes, piece), expected) << "in pieces of " << piece;
}

TEST(MessageReader, MarkedMessages) {
  Expect(false, "<a/>]]>]]>", {"<a/>"});
  Expect(false, "<a/>]]>]]>\n<b/>]]>]]><c", {"<a/>", "\n<b/>"});
  Expect(false, "]]>]]>", {""});
  Expect(false, "<![CDATA[x]]>]]>]]>", {"<![CDATA[x"});
  Expect(false, "a]]>]b]]]]>]]>", {"a]]>]b]]"});
}

TEST(MessageReader, MarkedMessagesThatAreTooBig) {
  const std::string most(kLimit, 'x');
  Expect(false, most + "]]>]]><b/>]]>]]>", {most, "<b/>"});
  Expect(false, most + "y]]>]]><b/>]]>]]>", {"(too big) xxx", "<b/>"});
}

TEST(MessageReader, Chunks) {
  Expect(true, "\n#4\n<a/>\n##\n", {"<a/>"});
  Expect(true, "\n#2\n<a\n#2\n/>\n##\n\n#1\nb\n##\n", {"<a/>", "b"});
  Expect(true, "\n#10\n]]>]]>\n##\n\n##\n", {"]]>]]>\n##\n"});
  const std::string most(kLimit, 'x');
  Expect(true, "\n#64\n" + most + "\n##\n", {most});
  Expect(true, "\n#64\n" + most + "\n#1\ny\n##\n\n#1\nz\n##\n", {"(too big) xxx", "z"});
}

TEST(MessageReader, WhatIsNoChunk) {
  for (const char *bytes :
       {"<a/>", "\n##\n", "\n#0\n", "\n#01\n", "\n#-1\n", "\n#x\n", "\n#\n", "\n#4294967296\n",
        "\n#99999999999999999999999999", "\n#1 \nx", "\n#4\n<a/>\n#\n", "\n#4\n<a/>x", "\r\n#4\n"})
    Expect(true, bytes, {"(broken)"});
  Expect(true, "\n#4294967295\nx", {});
  Expect(true, "x\n#1\na\n##\n", {"(broken)"});
}

TEST(MessageReader, KnowsWhetherAMessageHasBegun) {
  MessageReader reader(kLimit);
  std::string message;
  EXPECT_TRUE(reader.Empty());
  reader.Append("<a");
  reader.Next(&message);
  EXPECT_FALSE(reader.Empty());
  reader.Append("/>]]>]]>");
  EXPECT_EQ(reader.Next(&message), State::kMessage);
  EXPECT_TRUE(reader.Empty());
}

TEST(MessageFramer, BothForms) {
  MessageFramer framer;
  std::string out;
  framer.Append("<a/>", &out);
  framer.End(&out);
  framer.SendChunks();
  framer.Append("<b>", &out);
  framer.Append("</b>", &out);
  framer.End(&out);
  EXPECT_EQ(out, "<a/>]]>]]>\n#3\n<b>\n#4\n</b>\n##\n");
}

}  // namespace
}  // namespace qdt::host
