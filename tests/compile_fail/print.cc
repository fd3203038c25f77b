// Prints whose format and arguments do not go together. Each must be refused while compiling; SNIPPET selects
// one, and 0 is how it is meant to be written.
#include <string>

#include "src/om/common/section.h"
#include "src/om/common/text.h"

bool Use(qdt::Text &text) {
  [[maybe_unused]] const uint64_t wide = 1;
  [[maybe_unused]] const int64_t wideSigned = -1;
#if SNIPPET == 0
  qdt::Section<10>(text).Line<"Label">(1u);
  return text.Print<"%u %d %hu %hhu %lu %llu %ld %x %02x %016llx %s %c %-*s %7.3f %%\n">(
      1u, -1, uint16_t{1}, uint8_t{1}, wide, wide, wideSigned, 1u, uint8_t{1}, wide, std::string("s"), 'c', 8,
      "s", 1.0);
#elif SNIPPET == 1
  return text.Print<"%u %u\n">(1u);
#elif SNIPPET == 2
  return text.Print<"%u\n">(1u, 2u);
#elif SNIPPET == 3
  return text.Print<"text\n">(1u);
#elif SNIPPET == 4
  return text.Print<"%-*s\n">("width missing");
#elif SNIPPET == 5
  return text.Print<"%u\n">(-1);
#elif SNIPPET == 6
  return text.Print<"%d\n">(1u);
#elif SNIPPET == 7
  return text.Print<"%u\n">(wide);
#elif SNIPPET == 8
  return text.Print<"%lu\n">(1u);
#elif SNIPPET == 9
  return text.Print<"%lu\n">(wideSigned);
#elif SNIPPET == 10
  return text.Print<"%ld\n">(wide);
#elif SNIPPET == 11
  return text.Print<"%s\n">(1u);
#elif SNIPPET == 12
  return text.Print<"%u\n">("text");
#elif SNIPPET == 13
  return text.Print<"%x\n">(-1);
#elif SNIPPET == 14
  return text.Print<"%7.3f\n">(1u);
#elif SNIPPET == 15
  return text.Print<"%c\n">("c");
#elif SNIPPET == 16
  return text.Print<"%*s\n">(8u, "width of a wrong type");
#elif SNIPPET == 17
  qdt::Section<10>(text).Line<"Label">(wide);
  return true;
#elif SNIPPET == 18
  return text.Print<"%i\n">(1);
#elif SNIPPET == 19
  return text.Print<"%p\n">(nullptr);
#elif SNIPPET == 20
  return text.Print<"%n\n">(1);
#elif SNIPPET == 21
  return text.Print<"%+d\n">(1);
#elif SNIPPET == 22
  return text.Print<"100%">();
#elif SNIPPET == 23
  return text.Print<"%f\n">(1.0);
#elif SNIPPET == 24
  return text.Print<"%.3s\n">("text");
#elif SNIPPET == 25
  return text.Print<"%010.3f\n">(1.0);
#elif SNIPPET == 26
  return text.Print<"%-08x\n">(1u);
#endif
}
