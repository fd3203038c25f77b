#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "platform/tbm.h"
#include "qdt/cli.h"
#include "qdt/tables.h"
#include "src/om/common/bounded.h"
#include "src/om/common/log.h"
#include "src/om/engine/interface.h"
#include "src/om/engine/table_ids.h"

using qdt::sscanf_s;
using qdt::strncpy_s;
using qdt::vsnprintf_truncated_s;

int32_t QdtCliPrintf(OutputBuffer *out, const char *format, ...) {
  auto length = static_cast<int32_t>(out->len);
  if (length < 0 || length >= QDT_OUTPUT_CAPACITY) {
    // Restarting keeps the newest output rather than refusing it.
    QDT_LOG_ERROR("qdt command print buf has error length[%d]\n", length);
    out->len = 0;
    length = 0;
  }
  va_list args;
  va_start(args, format);
  const int32_t written =
      vsnprintf_truncated_s(out->buf + length, QDT_OUTPUT_CAPACITY - length, format, args);
  va_end(args);
  if (written < 0) {
    QDT_LOG_ERROR("qdt command print length error, return[%d]\n", written);
    return 0;
  }
  out->len += written;
  return written;
}

int32_t QdtCliParseInt(const char *text, uint8_t *ok) {
  char *end = nullptr;
  const auto value = strtol(text, &end, 10);
  if (ok != nullptr) *ok = *end == '\0';
  return static_cast<int32_t>(value);
}

uint64_t QdtCliParseUint64(const char *text, uint8_t *ok) {
  const char *digits = text;
  int base = 10;
  if (text[0] == '0') {
    const bool hexadecimal = text[1] == 'x' || text[1] == 'X';
    base = hexadecimal ? 16 : 8;
    digits += hexadecimal ? 2 : 1;
  }
  char *end = nullptr;
  const uint64_t value = strtoull(digits, &end, base);
  if (ok != nullptr) *ok = *end == '\0' && text[0] != '-';
  return value;
}

uint32_t QdtCliParseUint(const char *text, uint8_t *ok) {
  uint8_t whole = 0;
  const uint64_t value = QdtCliParseUint64(text, &whole);
  *ok = whole == 1 && value <= UINT32_MAX;
  return *ok == 1 ? static_cast<uint32_t>(value) : 0;
}

int32_t QdtCliStr2Mac(const char *text, uint8_t *mac, int8_t macLen) {
  if (macLen != sizeof(qdt::MacAddress)) return -1;
  uint32_t field[6];
  if (sscanf_s(text, "%02x:%02x:%02x:%02x:%02x:%02x", &field[0], &field[1], &field[2], &field[3], &field[4],
               &field[5]) < 6) {
    return -1;
  }
  for (int i = 0; i < 6; ++i) mac[i] = static_cast<uint8_t>(field[i]);
  return 0;
}

int32_t QdtCliGetIpsSeparatedByColon(const char *text, char *first, char *second, uint32_t size) {
  const char *const colon = text[0] == '\0' ? nullptr : strchr(text + 1, ':');
  if (text[0] == ':' || colon == nullptr || colon[1] == '\0') {
    QDT_LOG_ERROR("[ErrCode: %d]not support this input for %s\n", QDT_TBL_UNSUPPORTED, text);
    return -1;
  }
  if (strncpy_s(first, size, text, colon - text) != 0) {
    QDT_LOG_ERROR("[ErrCode: %d]strncpy ip1 fail for %s\n", QDT_TBL_MEMORY, text);
    return -1;
  }
  if (strncpy_s(second, size, colon + 1, strlen(colon + 1)) != 0) {
    QDT_LOG_ERROR("[ErrCode: %d]strncpy ip2 fail for %s\n", QDT_TBL_MEMORY, text);
    return -1;
  }
  return 0;
}

uint32_t QdtCliGetFwdifIndexByCtrlIndex(uint32_t ctrlIfIndex) {
  void *entry = nullptr;
  const int32_t code = TbmTblSearch(qdt::kEngineInstance, qdt::kTableCtrlIfMap, &ctrlIfIndex, &entry);
  if (code != 0) return static_cast<uint32_t>(code);
  if (entry == nullptr) return static_cast<uint32_t>(QDT_TBL_MEMORY);
  return static_cast<const qdt::InterfaceMapEntry *>(entry)->fwdIfIndex;
}
