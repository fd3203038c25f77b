#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <cstring>
#include <fstream>
#include <thread>

#include "host/base/fd.h"
#include "host/capture/capture_file.h"
#include "host/capture/captured_traffic.h"
#include "host/capture/live_capture.h"
#include "host/engine/engine.h"
#include "host/engine/scenario_filler.h"
#include "platform/engine.h"
#include "tests/host/temp_dir.h"

namespace qdt::host {
namespace {

using std::chrono_literals::operator""s;

// A file of captures, as a program of either byte order writes it.
class CaptureText {
 public:
  explicit CaptureText(uint32_t magic = 0xa1b2c3d4, uint32_t linkType = 1, bool swapped = false)
      : swapped_(swapped) {
    Word(magic);
    Word(swapped ? 0x00020004 : 0x00040002);  // version 2.4, two numbers of 16 bits
    Word(0);
    Word(0);
    Word(262144);
    Word(linkType);
  }

  CaptureText &Packet(uint32_t seconds, uint32_t fraction, const std::string &bytes) {
    return Lying(seconds, fraction, static_cast<uint32_t>(bytes.size()), static_cast<uint32_t>(bytes.size()),
                 bytes);
  }
  CaptureText &Lying(uint32_t seconds, uint32_t fraction, uint32_t captured, uint32_t wire,
                     const std::string &bytes) {
    for (const uint32_t word : {seconds, fraction, captured, wire}) Word(word);
    text_ += bytes;
    return *this;
  }
  const std::string &text() const { return text_; }

 private:
  void Word(uint32_t word) {
    if (swapped_) word = __builtin_bswap32(word);
    text_.append(reinterpret_cast<const char *>(&word), sizeof word);
  }

  bool swapped_;
  std::string text_;
};

class CaptureFileTest : public testing::Test {
 protected:
  std::string Write(const std::string &text) {
    const std::string path = directory_.File("capture");
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }
  std::string RefusalOf(const std::string &path) {
    try {
      CaptureFile file(path);
    } catch (const HostError &error) {
      EXPECT_EQ(std::string(error.what()).find('\n'), std::string::npos);
      return std::string(error.what()).substr(directory_.path().size());
    }
    return "accepted";
  }
  // "BYTES@NANOSECONDS " for each packet, and how it ended.
  std::string Contents(const std::string &text) {
    CaptureFile file(Write(text));
    std::string contents;
    for (; file.Peek() != nullptr; file.Advance()) {
      const CapturedBytes &packet = *file.Peek();
      contents += std::string(reinterpret_cast<const char *>(packet.data), packet.captured) + "/" +
                  std::to_string(packet.wire) + "@" + std::to_string(packet.time) + " ";
    }
    return contents + file.ending().substr(directory_.path().size());
  }

  TempDir directory_;
};

TEST_F(CaptureFileTest, ReadsAllForms) {
  constexpr char kTwo[] = "ab/2@1000002000 cde/3@2000000000 /capture: end of file; 2 packets were read";
  EXPECT_EQ(Contents(CaptureText(0xa1b2c3d4).Packet(1, 2, "ab").Packet(2, 0, "cde").text()), kTwo);
  EXPECT_EQ(Contents(CaptureText(0xa1b23c4d).Packet(1, 2000, "ab").Packet(2, 0, "cde").text()), kTwo);
  EXPECT_EQ(Contents(CaptureText(0xa1b2c3d4, 1, true).Packet(1, 2, "ab").Packet(2, 0, "cde").text()), kTwo);
  EXPECT_EQ(Contents(CaptureText(0xa1b2c3d4).Lying(1, 2, 2, 1500, "ab").text()),
            "ab/1500@1000002000 /capture: end of file; 1 packet was read");
  EXPECT_EQ(Contents(CaptureText().text()), "/capture: end of file; 0 packets were read");
  EXPECT_EQ(CaptureFile(Write(CaptureText(0xa1b2c3d4, 113).text())).linkType(), LinkType::kCooked);
  EXPECT_EQ(CaptureFile(Write(CaptureText(0xa1b2c3d4, 276).text())).linkType(), LinkType::kCooked2);
}

TEST_F(CaptureFileTest, RefusesWhatIsNone) {
  EXPECT_EQ(RefusalOf(directory_.File("missing")), "/missing: No such file or directory");
  EXPECT_EQ(RefusalOf(directory_.path()), ": not a regular file; name a file of captured packets");
  const std::string pipe = directory_.File("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(RefusalOf(pipe), "/pipe: not a regular file; name a file of captured packets");
  EXPECT_EQ(RefusalOf(Write("")),
            "/capture: not a file of captured packets: truncated dump file; tried to read 4 file header "
            "bytes, only "
            "got 0");
  EXPECT_EQ(RefusalOf(Write("fwdif: [{if_index: 1}]\nfib: []\n")),
            "/capture: not a file of captured packets: unknown file format");
  EXPECT_EQ(RefusalOf(Write(CaptureText().text().substr(0, 23))),
            "/capture: not a file of captured packets: truncated dump file; tried to read 24 file header "
            "bytes, only "
            "got 19");
  EXPECT_EQ(
      RefusalOf(Write(CaptureText(0xa1b2c3d4, 105).text())),
      "/capture: packets of the link type IEEE802_11 are not read; Ethernet and Linux cooked captures are");
}

TEST_F(CaptureFileTest, RefusesAFirstPacketThatIsNotWhole) {
  const std::string whole = CaptureText().Packet(1, 2, "abcd").text();
  EXPECT_EQ(RefusalOf(Write(whole.substr(0, whole.size() - 1))),
            "/capture: damaged: truncated dump file; tried to read 4 captured bytes, only got 3; 0 packets "
            "were read");
  EXPECT_EQ(RefusalOf(Write(whole.substr(0, 30))),
            "/capture: damaged: truncated dump file; tried to read 16 header bytes, only got 6; 0 packets "
            "were read");
}

TEST_F(CaptureFileTest, EndsWhereALaterPacketIsNotWhole) {
  EXPECT_EQ(
      Contents(CaptureText().Packet(1, 2, "ab").Lying(1, 3, 200, 200, "cd").text()),
      "ab/2@1000002000 /capture: damaged: truncated dump file; tried to read 200 captured bytes, only got 2; "
      "1 packet was read");
  EXPECT_EQ(
      Contents(CaptureText().Packet(1, 2, "ab").Lying(1, 3, 0xffffffff, 2, "cd").text()),
      "ab/2@1000002000 /capture: damaged: invalid packet capture length 4294967295, bigger than snaplen of "
      "262144; 1 packet was read");
}

TEST_F(CaptureFileTest, APacketIsNoShorterThanWhatWasKept) {
  EXPECT_EQ(Contents(CaptureText().Lying(1, 2, 2, 0, "ab").text()),
            "ab/2@1000002000 /capture: end of file; 1 packet was read");
}

// Every cut and every other byte of a good file: it is refused or read to some end.
TEST_F(CaptureFileTest, BearsEveryDamage) {
  const std::string good = CaptureText().Packet(1, 2, "abcd").Packet(0xffffffff, 0xffffffff, "ef").text();
  const auto read = [this](const std::string &text) {
    try {
      CaptureFile file(Write(text));
      while (file.Peek() != nullptr) file.Advance();
      EXPECT_FALSE(file.ending().empty());
    } catch (const HostError &error) {
      EXPECT_NE(std::string(error.what()), "");
    }
  };
  for (size_t size = 0; size <= good.size(); ++size) read(good.substr(0, size));
  for (size_t at = 0; at < good.size(); ++at) {
    for (const int flip : {0x01, 0x80, 0xff}) {
      std::string bad = good;
      bad[at] = static_cast<char>(bad[at] ^ flip);
      read(bad);
    }
  }
}

class CapturedTrafficTest : public testing::Test {
 protected:
  // ARP requests of 192.0.2.11, of which `count` a second apart.
  static std::string ArpFile(uint32_t count) {
    CaptureText text;
    const std::string request(
        "\xff\xff\xff\xff\xff\xff\x02\x00\x5e\x00\x00\x01\x08\x06\x00\x01\x08\x00\x06\x04\x00\x01"
        "\x02\x00\x5e\x00\x00\x01\xc0\x00\x02\x0b\x00\x00\x00\x00\x00\x00\xc0\x00\x02\x01",
        42);
    for (uint32_t i = 0; i < count; ++i) text.Packet(100 + i, 0, request);
    return text.text();
  }

  uint64_t Counted(uint32_t number) {
    std::vector<uint64_t> total(QDT_STAT_COUNTERS);
    QdtSysStatAccumulate(7, total.data());
    return total[number];
  }

  std::string Write(const std::string &text) {
    const std::string path = directory_.File("capture");
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }

  TempDir directory_;
  ScenarioFiller filler_{"test",
                         Scenario::FromText("test", "fwdif: [{if_index: 11, enable: 1}]", Layout::BuiltIn())};
  Engine engine_{{directory_.File("arena"), directory_.File("socket"), 2}, Layout::BuiltIn(), &filler_};
  Pipeline pipeline_{&engine_, {}};
  std::vector<std::string> said_;
  CapturedTraffic traffic_{&engine_, &pipeline_, [this](const std::string &line) { said_.push_back(line); }};
};

TEST_F(CapturedTrafficTest, PlaysAFileInSteps) {
  const std::string path = Write(ArpFile(100));
  traffic_.Replay(path, 11, true);
  EXPECT_TRUE(traffic_.Step());
  EXPECT_EQ(Counted(498), 60u);
  EXPECT_TRUE(said_.empty());
  EXPECT_FALSE(traffic_.Step());
  EXPECT_EQ(Counted(498), 100u);
  EXPECT_EQ(said_, (std::vector<std::string>{path + ": end of file; 100 packets were read"}));
  EXPECT_FALSE(traffic_.Step());
}

TEST_F(CapturedTrafficTest, KeepsTheFilesPace) {
  traffic_.Replay(Write(ArpFile(3)), 11, false);
  const auto begun = std::chrono::steady_clock::now();
  EXPECT_FALSE(traffic_.Step());
  EXPECT_EQ(Counted(498), 1u);
  while (Counted(498) == 1) {
    EXPECT_FALSE(traffic_.Step());
    ASSERT_LT(std::chrono::steady_clock::now() - begun, 60s);
  }
  EXPECT_GE(std::chrono::steady_clock::now() - begun, 1s);
  EXPECT_TRUE(said_.empty());
}

// A network namespace of its own, with the loopback up; none without the right to make one.
UniqueFd NewNamespace() {
  UniqueFd fd;
  std::thread([&fd] {
    if (unshare(CLONE_NEWNET) != 0) return;
    const UniqueFd socket(::socket(AF_INET, SOCK_DGRAM, 0));
    ifreq request{};
    std::strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP;
    if (ioctl(socket.get(), SIOCSIFFLAGS, &request) == 0)
      fd = UniqueFd(open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC));
  }).join();
  return fd;
}

void SendInside(int netns, int count) {
  std::thread([=] {
    ASSERT_EQ(setns(netns, CLONE_NEWNET), 0);
    const UniqueFd socket(::socket(AF_INET, SOCK_DGRAM, 0));
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    to.sin_port = htons(9);
    for (int i = 0; i < count; ++i)
      ASSERT_EQ(sendto(socket.get(), "x", 1, 0, reinterpret_cast<sockaddr *>(&to), sizeof to), 1);
  }).join();
}

TEST_F(CapturedTrafficTest, CapturesInANamespace) {
  const UniqueFd netns = NewNamespace();
  if (!netns.ok()) GTEST_SKIP() << "no right to make a network namespace";
  traffic_.Capture("lo", 11, netns.get());
  ASSERT_EQ(said_, std::vector<std::string>{});
  SendInside(netns.get(), 5);
  const auto begun = std::chrono::steady_clock::now();
  while (Counted(479) < 5) {
    traffic_.Follow();
    ASSERT_LT(std::chrono::steady_clock::now() - begun, 60s);
  }
  // Each once, although the loopback receives what it sends.
  traffic_.Check();
  EXPECT_EQ(Counted(479), 5u);
}

TEST_F(CapturedTrafficTest, RefusesAnInterfaceThatIsNone) {
  for (const std::string name : {"nosuch0", "a-name-that-is-longer-than-any-may-be", "", "any"}) {
    try {
      traffic_.Capture(name, 0, -1);
      FAIL() << "accepted";
    } catch (const HostError &error) {
      EXPECT_EQ(error.what(), "--capture \"" + name + "\": there is no such network interface (see ip link)");
    }
  }
}

}  // namespace
}  // namespace qdt::host
