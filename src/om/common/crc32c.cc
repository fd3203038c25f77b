#include "src/om/common/crc32c.h"

#include <array>

#if defined(__aarch64__)
#include <asm/hwcap.h>
#include <sys/auxv.h>
#endif

namespace qdt {
namespace {

constexpr uint32_t kBegin = 0xFFFFFFFF;
constexpr uint32_t kReflectedPolynomial = 0x82F63B78;

// The remainders of all single bytes.
constexpr std::array<uint32_t, 256> kRemainder = [] {
  std::array<uint32_t, 256> table{};
  for (uint32_t byte = 0; byte < table.size(); ++byte) {
    uint32_t crc = byte;
    for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ (crc & 1) * kReflectedPolynomial;
    table[byte] = crc;
  }
  return table;
}();

#if defined(__x86_64__)

bool HasInstructions() { return __builtin_cpu_supports("sse4.2"); }

__attribute__((target("sse4.2"))) uint32_t ByInstructions(const uint8_t *bytes, size_t size) {
  uint32_t crc = kBegin;
  for (size_t i = 0; i < size; ++i) crc = __builtin_ia32_crc32qi(crc, bytes[i]);
  return crc;
}

#elif defined(__aarch64__)

bool HasInstructions() { return (getauxval(AT_HWCAP) & HWCAP_CRC32) != 0; }

// Assembler, because the compilers offer the instruction only where the whole target has it.
uint32_t ByInstructions(const uint8_t *bytes, size_t size) {
  uint32_t crc = kBegin;
  for (size_t i = 0; i < size; ++i) {
    const uint32_t byte = bytes[i];
    asm(".arch_extension crc\n\tcrc32cb %w0, %w0, %w1" : "+r"(crc) : "r"(byte));
  }
  return crc;
}

#else

bool HasInstructions() { return false; }

uint32_t ByInstructions(const uint8_t *bytes, size_t size) { return Crc32cByTable(bytes, size); }

#endif

}  // namespace

uint32_t Crc32cByTable(const void *data, size_t size) {
  const auto *const bytes = static_cast<const uint8_t *>(data);
  uint32_t crc = kBegin;
  for (size_t i = 0; i < size; ++i) crc = crc >> 8 ^ kRemainder[(crc ^ bytes[i]) & 0xFF];
  return crc;
}

uint32_t Crc32c(const void *data, size_t size) {
  return HasInstructions() ? ByInstructions(static_cast<const uint8_t *>(data), size)
                           : Crc32cByTable(data, size);
}

}  // namespace qdt
