#ifndef TESTS_UNIT_COMMAND_TEST_H_
#define TESTS_UNIT_COMMAND_TEST_H_

#include <string>
#include <utility>
#include <vector>

#include "tests/fake_platform/fake_platform.h"

namespace qdt::test {

// What the tests of command entry points share: words in, answer out, a region written by byte offset.
class CommandTest : public PlatformTest {
 protected:
  // An answer area whose text so far is `length` bytes of '#'.
  class Output {
   public:
    explicit Output(uint32_t length = 0) : area_(QDT_OUTPUT_CAPACITY + 1, '#') {
      if (length < QDT_OUTPUT_CAPACITY) area_[length] = '\0';
      area_[QDT_OUTPUT_CAPACITY] = '!';
      out.buf = area_.data();
      out.len = length;
    }
    ~Output() { EXPECT_EQ(area_[QDT_OUTPUT_CAPACITY], '!') << "written outside of the answer's area"; }
    Output(const Output &) = delete;
    Output &operator=(const Output &) = delete;

    std::string text() const { return std::string(out.buf, strnlen(out.buf, QDT_OUTPUT_CAPACITY)); }

    OutputBuffer out;

   private:
    std::string area_;
  };

  using Command = int32_t (*)(OutputBuffer *out, int32_t wordCount, char **words);

  // The answer to the words; `result` is what the command returned. An answer that stands there already is
  // replaced.
  std::string Run(Command command, const std::vector<std::string> &words) {
    std::vector<char *> pointers;
    for (const std::string &word : words) pointers.push_back(const_cast<char *>(word.c_str()));
    Output output(77);
    result = command(&output.out, static_cast<int32_t>(pointers.size()), pointers.data());
    EXPECT_EQ(output.text().size(), output.out.len);
    return output.text();
  }

  // What an operation appends to an answer.
  template <typename Operation, typename... Args>
  static std::string Appended(Operation operation, Args... args) {
    Output output(3);
    operation(&output.out, args...);
    EXPECT_EQ(output.text().substr(0, 3), "###");
    EXPECT_EQ(output.text().size(), output.out.len);
    return output.text().substr(3);
  }

  template <typename T>
  void Put(const char *region, size_t offset, T value) {
    std::memcpy(static_cast<char *>(platform.Region(region)) + offset, &value, sizeof(value));
  }

  template <typename T>
  T Get(const char *region, size_t offset) {
    T value;
    std::memcpy(&value, static_cast<const char *>(platform.Region(region)) + offset, sizeof(value));
    return value;
  }

  // What a call prints on standard output.
  template <typename Call>
  static std::string StandardOutput(Call call) {
    ::testing::internal::CaptureStdout();
    call();
    return ::testing::internal::GetCapturedStdout();
  }
};

}  // namespace qdt::test

#endif  // TESTS_UNIT_COMMAND_TEST_H_
