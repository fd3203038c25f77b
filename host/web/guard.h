#ifndef HOST_WEB_GUARD_H_
#define HOST_WEB_GUARD_H_

#include <string>
#include <vector>

#include "host/web/message.h"
#include "host/web/routes.h"

namespace qdt::host {

// Who may ask what. A browser that shows a stranger's page asks in its user's name: such a request is known
// by its Host (a name that was made to lead here) and its Origin.
struct GuardOptions {
  std::vector<std::string>
      names;          // in small letters, under which the server may be asked; numbers it may always
  std::string token;  // needed for all data; empty: none is needed, and none changes anything
  bool allowChanges = false;
  bool tls = false;
};

class Guard {
 public:
  explicit Guard(GuardOptions options) : options_(std::move(options)) {}

  // What the routes answer to a request, or why they are not asked; with the headers that every answer has.
  WebAnswer Answer(const Routes &routes, const WebRequest &request) const;

 private:
  // Throws WebProblem.
  void Check(const WebRequest &request) const;
  bool IsOwnHost(const std::string &host) const;
  bool HasToken(const WebRequest &request) const;

  const GuardOptions options_;
};

// Adds what each answer tells a browser: to load nothing from elsewhere for it, to stand in no other page,
// and to keep no copy, but where the answer says otherwise.
void AddSafeHeaders(WebAnswer *answer);

// A token out of a file: its first line, at least 16 characters. Throws HostError, also when others can read
// the file.
std::string ReadToken(const std::string &file);

}  // namespace qdt::host

#endif  // HOST_WEB_GUARD_H_
