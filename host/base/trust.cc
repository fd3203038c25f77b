#include "host/base/trust.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

#include "host/base/host_error.h"
#include "host/base/words.h"

namespace qdt::host {
namespace {

std::vector<uid_t> &Trusted() {
  static std::vector<uid_t> users;
  return users;
}

std::optional<uid_t> Number(std::string_view text) {
  uid_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  // The highest number is the system's "no user".
  if (error != std::errc() || end != text.data() + text.size() || number == static_cast<uid_t>(-1)) return {};
  return number;
}

// Asks `fits` with name and number of each user of this machine, until one does. A program without shared
// libraries cannot ask the name services; users that only those know go by number.
std::optional<std::pair<std::string, uid_t>> FindEntry(
    const std::function<bool(std::string_view, uid_t)> &fits) {
  std::ifstream users("/etc/passwd");
  for (std::string line; std::getline(users, line);) {
    const size_t name = line.find(':');
    const size_t begin = name == line.npos ? line.npos : line.find(':', name + 1);
    if (begin == line.npos) continue;
    const auto number =
        Number(std::string_view(line).substr(begin + 1, line.find(':', begin + 1) - begin - 1));
    if (number && fits(std::string_view(line).substr(0, name), *number))
      return std::make_pair(line.substr(0, name), *number);
  }
  return {};
}

}  // namespace

uid_t FindUser(const std::string &user, const std::string &option) {
  if (const auto number = Number(user)) return *number;
  const auto found = FindEntry([&](std::string_view name, uid_t) { return name == user; });
  if (!found) throw HostError(option + ": no user " + Quoted(user) + " is in /etc/passwd; name a number");
  return found->second;
}

void TrustUser(const std::string &user) { Trusted().push_back(FindUser(user, "--trust")); }

bool IsTrusted(uid_t user) {
  return user == 0 || user == geteuid() || std::ranges::count(Trusted(), user) != 0;
}

std::string UserName(uid_t user) {
  const auto found = FindEntry([&](std::string_view, uid_t number) { return number == user; });
  return found ? found->first : std::to_string(user);
}

void RequireTrusted(uid_t owner, const std::string &what) {
  if (IsTrusted(owner)) return;
  const std::string name = UserName(owner);
  throw HostError(what + " belongs to user " + name + ", who is neither this user nor root (--trust " + name +
                  " believes it all the same)");
}

}  // namespace qdt::host
