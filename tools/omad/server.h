#ifndef TOOLS_OMAD_SERVER_H_
#define TOOLS_OMAD_SERVER_H_

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "host/agent/worker.h"
#include "host/omcc/model.h"

namespace qdt::omad {

struct ServerOptions {
  bool ssh = true;
  std::string address = "127.0.0.1";
  uint16_t port = 830;
  std::string hostKey;                                        // private key file of the server
  std::vector<std::pair<std::string, std::string>> userKeys;  // user and public key file
  std::vector<std::pair<std::string, std::string>>
      passwords;           // user and crypt(3) hash; none: no password login
  std::string unixSocket;  // empty: none
  bool verbose = false;
};

// Serves NETCONF sessions until `stop` (a file) becomes readable. `ready` is called when clients can connect.
// Throws HostError when an endpoint cannot be set up.
//
// Each session has a thread of its own, so that a client that reads slowly keeps nobody waiting but itself.
void Serve(const ServerOptions &options, const host::Model &model, host::AgentWorker *worker, int stop,
           void (*ready)(const ServerOptions &));

}  // namespace qdt::omad

#endif  // TOOLS_OMAD_SERVER_H_
