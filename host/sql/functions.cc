#include "host/sql/functions.h"

#include <time.h>

#include <cctype>
#include <cstdio>
#include <string>
#include <utility>

#include "host/layout/value_text.h"
#include "host/record/filter.h"
#include "host/sql/sql_value.h"

namespace qdt::host {
namespace {

constexpr FieldRef kMac{0, 6, FieldKind::kMac, 0, 0};

// Whether an address, or a prefix as a whole, lies in a prefix.
void InPrefix(sqlite3_context *context, int, sqlite3_value **values) {
  const auto address = ParsePrefix(TextOf(values[0]));
  const auto prefix = ParsePrefix(TextOf(values[1]));
  if (!address || !prefix) return sqlite3_result_null(context);
  const bool in = address->form == prefix->form && address->length >= prefix->length &&
                  (address->value & prefix->Mask()) == prefix->value;
  sqlite3_result_int(context, in ? 1 : 0);
}

// Of "192.0.2.0/24" 24; of a mask "255.255.255.0" the same.
void PrefixLength(sqlite3_context *context, int, sqlite3_value **values) {
  const std::string_view text = TextOf(values[0]);
  const auto prefix = ParsePrefix(text);
  if (!prefix) return sqlite3_result_null(context);
  if (text.find('/') != text.npos) return sqlite3_result_int(context, static_cast<int>(prefix->length));
  AddressPrefix mask{prefix->form, 0, 0};
  while (mask.length < prefix->length && mask.Mask() != prefix->value) ++mask.length;
  if (mask.Mask() != prefix->value) return sqlite3_result_null(context);
  sqlite3_result_int(context, static_cast<int>(mask.length));
}

// The digits of a MAC address in groups of one size, whatever stands between them, as "02:00:5e:00:53:01";
// empty when it has not twelve.
std::string RegroupMac(std::string_view text) {
  std::string grouped;
  size_t digits = 0;
  size_t ofGroup = 0;  // digits since the separator
  size_t group = 0;
  for (const char c : text) {
    if (std::isxdigit(static_cast<unsigned char>(c)) != 0) {
      if (digits != 0 && digits % 2 == 0) grouped += ':';
      grouped += c;
      ++digits;
      ++ofGroup;
    } else if ((c == ':' || c == '-' || c == '.') && ofGroup != 0 && (group == 0 || group == ofGroup)) {
      group = std::exchange(ofGroup, 0);
    } else {
      return "";
    }
  }
  return digits == 12 && (group == 0 || group == ofGroup) ? grouped : "";
}

// A MAC address as the tables show it, however it is written.
void Mac(sqlite3_context *context, int, sqlite3_value **values) {
  std::string problem;
  const std::optional<WideValue> value = ParseValue(kMac, RegroupMac(TextOf(values[0])), &problem);
  if (!value) return sqlite3_result_null(context);
  char room[kValueRoom];
  ResultText(context, {room, WriteValue(kMac, *value, room)});
}

// An address with all its digits, so that texts sort as addresses do; the bracket puts IPv6 behind IPv4.
void Ip(sqlite3_context *context, int, sqlite3_value **values) {
  const auto address = ParsePrefix(TextOf(values[0]));
  if (!address) return sqlite3_result_null(context);
  char part[8];
  const bool isIpv4 = address->form == ValueForm::kIpv4;
  std::string text = isIpv4 ? "" : "[";
  for (int i = isIpv4 ? 3 : 7; i >= 0; --i) {
    const auto number =
        static_cast<unsigned>(address->value >> (i * (isIpv4 ? 8 : 16)) & (isIpv4 ? 0xff : 0xffff));
    std::snprintf(part, sizeof(part), isIpv4 ? "%03u" : "%04x", number);
    text += part;
    if (i > 0) text += isIpv4 ? '.' : ':';
  }
  if (!isIpv4) text += ']';
  ResultText(context, text);
}

// The time of day, UTC, so many seconds ago: what fields tell as seconds ago.
void Ago(sqlite3_context *context, int, sqlite3_value **values) {
  if (sqlite3_value_numeric_type(values[0]) == SQLITE_NULL ||
      sqlite3_value_numeric_type(values[0]) == SQLITE_TEXT)
    return sqlite3_result_null(context);
  const double seconds = sqlite3_value_double(values[0]);
  if (!(seconds > -1e11 && seconds < 1e11)) return sqlite3_result_null(context);
  const time_t then = time(nullptr) - static_cast<time_t>(seconds);
  tm parts = {};
  char text[64];
  if (gmtime_r(&then, &parts) == nullptr) return sqlite3_result_null(context);
  ResultText(context, {text, strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &parts)});
}

struct Function {
  const char *name;
  int arguments;
  int flags;
  void (*call)(sqlite3_context *context, int count, sqlite3_value **values);
};

constexpr Function kFunctions[] = {
    {"in_prefix", 2, SQLITE_DETERMINISTIC, InPrefix},
    {"prefix_length", 1, SQLITE_DETERMINISTIC, PrefixLength},
    {"mac", 1, SQLITE_DETERMINISTIC, Mac},
    {"ip", 1, SQLITE_DETERMINISTIC, Ip},
    {"ago", 1, 0, Ago},
};

}  // namespace

int AddFunctions(sqlite3 *connection) {
  for (const Function &function : kFunctions) {
    const int code = sqlite3_create_function_v2(connection, function.name, function.arguments,
                                                SQLITE_UTF8 | SQLITE_INNOCUOUS | function.flags, nullptr,
                                                function.call, nullptr, nullptr, nullptr);
    if (code != SQLITE_OK) return code;
  }
  return SQLITE_OK;
}

}  // namespace qdt::host
