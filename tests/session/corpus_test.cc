// What fuzzing has found, and what is worth to begin with, is read in every run of the tests.

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

TEST(Corpus, IsReadWithoutHarm) {
  size_t count = 0;
  for (const auto &file : std::filesystem::directory_iterator(QDT_SOURCE_DIR "/fuzz/corpus/session_reader")) {
    std::ifstream stream(file.path(), std::ios::binary);
    const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(stream), {}};
    SCOPED_TRACE(file.path());
    EXPECT_EQ(LLVMFuzzerTestOneInput(bytes.data(), bytes.size()), 0);
    ++count;
  }
  EXPECT_GE(count, 60u);
}

}  // namespace
