#include "host/base/arguments.h"

#include "host/base/host_error.h"

namespace qdt::host {

bool Arguments::Take(std::string_view name) {
  if (empty() || front() != name) return false;
  words_ = words_.subspan(1);
  return true;
}

bool Arguments::TakeValue(std::string_view name, std::string *value) {
  if (empty() || !front().starts_with(name)) return false;
  std::string_view attached = front().substr(name.size());
  if (!attached.empty() && attached.front() != '=') return false;
  words_ = words_.subspan(1);
  value->clear();
  if (!attached.empty()) {
    *value = attached.substr(1);
  } else if (!empty()) {
    *value = front();
    words_ = words_.subspan(1);
  }
  if (value->empty()) throw HostError(std::string(name) + " needs a value; try --help");
  return true;
}

std::string ProgramVersion() { return QDT_VERSION; }

std::string BuildInfo(bool isStatic) {
#if defined(__clang__)
  constexpr char kCompiler[] = "clang " __clang_version__;
#else
  constexpr char kCompiler[] = "g++ " __VERSION__;
#endif
#if defined(__x86_64__)
  constexpr char kTarget[] = "x86-64";
#elif defined(__aarch64__)
  constexpr char kTarget[] = "AArch64";
#else
  constexpr char kTarget[] = "another processor";
#endif
  const std::string sanitizers = QDT_SANITIZE_NAMES;
  return ProgramVersion() + " (" + kCompiler + ", " + kTarget + ", " + (isStatic ? "static" : "dynamic") +
         ", " + (sanitizers.empty() ? "no sanitizers" : "sanitizers " + sanitizers) + ")";
}

}  // namespace qdt::host
