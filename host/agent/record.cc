#include "host/agent/record.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "host/base/direction.h"
#include "host/base/trust.h"
#include "host/netconf/xml_text.h"
#include "host/wire/socket_address.h"

namespace qdt::host {
namespace {

constexpr int kFacility = 10;  // security and authorization, for few eyes
// The number that RFC 5612 keeps for documents; what an organization without its own number may use.
constexpr char kDataName[] = "omad@32473";
constexpr size_t kMostOfValue = 2048;

// The text on one line: what is not printable arrives as '?'.
std::string LineText(std::string text) {
  text = XmlText(std::move(text));
  std::string line;
  for (size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    // U+0080 to U+009F steer terminals as well.
    const bool steers = c == 0xc2 && static_cast<unsigned char>(text[i + 1]) < 0xa0;
    const bool turns = TurnsAround(std::string_view(text).substr(i));
    const bool shown = c >= 0x20 && c != 0x7f && !steers && !turns;
    line += shown ? text[i] : '?';
    if (steers || turns) i += c == 0xe2 ? 2 : 1;
  }
  return line;
}

// A value without what could end it.
std::string ValueText(std::string value) {
  const bool cut = value.size() > kMostOfValue;
  if (cut) value.resize(kMostOfValue);
  std::string text;
  for (const char c : LineText(std::move(value))) {
    if (c == '"' || c == '\\' || c == ']') text += '\\';
    text += c;
  }
  return cut ? text + "..." : text;
}

std::string TimeText(int64_t microseconds) {
  const time_t seconds = microseconds / 1'000'000;
  tm parts{};
  gmtime_r(&seconds, &parts);
  char text[64];
  const size_t length = strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
  std::snprintf(text + length, sizeof text - length, ".%06dZ", static_cast<int>(microseconds % 1'000'000));
  return text;
}

}  // namespace

std::string RecordLine(Record::Severity severity, const char *event, Record::Values values,
                       std::string_view text, int64_t time, std::string_view host, int64_t process) {
  std::string line = '<' + std::to_string(kFacility * 8 + static_cast<int>(severity)) + ">1 " +
                     TimeText(time) + ' ' + std::string(host.empty() ? "-" : host) + " omad " +
                     std::to_string(process) + ' ' + event + " [" + kDataName;
  for (const auto &[name, value] : values) line += std::string(" ") + name + "=\"" + ValueText(value) + '"';
  return line + "] " + LineText(std::string(text));
}

Record::Record(std::string path) : path_(std::move(path)) {
  struct stat info;
  isSocket_ = stat(path_.c_str(), &info) == 0 ? S_ISSOCK(info.st_mode) : path_ == "/dev/log";
  if (isSocket_) return;
  Reopen();
  if (!fd_.ok()) throw HostError("cannot write the record " + path_ + ": " + failure_);
}

void Record::Reopen() {
  failure_.clear();
  if (isSocket_) {
    fd_ = UniqueFd();
    return;
  }
  // A pipe that nobody reads would hold the agent up, here or at a write.
  constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK;
  fd_ = UniqueFd(open(path_.c_str(), kFlags, 0600));
  if (!fd_.ok()) failure_ = std::strerror(errno);
}

void Record::Write(Severity severity, const char *event, Values values, std::string_view text) {
  char host[256] = "";
  gethostname(host, sizeof host - 1);
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  Send(RecordLine(severity, event, values, text,
                  std::chrono::duration_cast<std::chrono::microseconds>(now).count(), host, getpid()));
}

void Record::Send(const std::string &line) {
  if (!isSocket_) {
    const std::string whole = line + '\n';
    if (write(fd_.get(), whole.data(), whole.size()) != static_cast<ssize_t>(whole.size()))
      failure_ = path_ + ": " + std::strerror(errno);
    return;
  }
  // The log daemon may have been started anew.
  for (int turn = 0; turn < 2; ++turn) {
    if (!fd_.ok()) {
      const sockaddr_un address = SocketAddress(path_);
      fd_ = UniqueFd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
      if (connect(fd_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) break;
    }
    if (send(fd_.get(), line.data(), line.size(), MSG_NOSIGNAL) >= 0) {
      failure_.clear();
      return;
    }
    if (turn == 0) fd_ = UniqueFd();
  }
  failure_ = path_ + ": " + std::strerror(errno);
  fd_ = UniqueFd();
}

}  // namespace qdt::host
