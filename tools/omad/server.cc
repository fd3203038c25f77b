#include "tools/omad/server.h"

#include <crypt.h>
#include <nc_server.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>

#include "host/base/host_error.h"
#include "tools/omad/rpcs.h"

namespace qdt::omad {
namespace {

using host::HostError;

constexpr char kSshEndpoint[] = "ssh";
constexpr char kUnixEndpoint[] = "local";
constexpr char kHostKeyName[] = "host";

// A client that connects and says nothing holds one accepting thread this long.
constexpr uint16_t kAuthSeconds = 15;
constexpr uint16_t kHelloSeconds = 15;
constexpr uint16_t kIdleSeconds = 0;  // sessions may be silent
constexpr int kAcceptThreads = 4;
constexpr int kMostSessions = 256;
constexpr int kPollMilliseconds = 200;  // how soon a thread sees that the agent stops

std::atomic<bool> g_stopping = false;
std::atomic<int> g_sessions = 0;
std::atomic<bool> g_verbose = false;

// libnetconf2 tells why a set-up step failed in its log only.
std::mutex g_messageMutex;
std::string g_lastError;

void Log(const nc_session *, NC_VERB_LEVEL level, const char *message) {
  const std::lock_guard lock(g_messageMutex);
  if (level == NC_VERB_ERROR) g_lastError = message;
  if (g_verbose) std::fprintf(stderr, "omad: %s\n", message);
}

[[noreturn]] void Fail(const std::string &what) {
  const std::lock_guard lock(g_messageMutex);
  throw HostError(what + (g_lastError.empty() ? "" : ": " + g_lastError));
}

void Check(int result, const std::string &what) {
  if (result != 0) Fail(what);
}

int GiveHostKey(const char *, void *options, char **path, char **, NC_SSH_KEY_TYPE *) {
  *path = strdup(static_cast<const ServerOptions *>(options)->hostKey.c_str());
  return *path == nullptr ? -1 : 0;
}

// Zero when the password is the user's.
int CheckPassword(const nc_session *session, const char *password, void *user) {
  const auto *options = static_cast<const ServerOptions *>(user);
  for (const auto &[name, hash] : options->passwords) {
    if (name != nc_session_get_username(session)) continue;
    crypt_data scratch = {};
    const char *typed = crypt_r(password, hash.c_str(), &scratch);
    return typed != nullptr && hash == typed ? 0 : 1;
  }
  return 1;
}

// libnetconf2 reads keys when a client connects; a file that is none would only be noticed then.
void CheckKeys(const ServerOptions &options) {
  ssh_key key = nullptr;
  if (ssh_pki_import_privkey_file(options.hostKey.c_str(), nullptr, nullptr, nullptr, &key) != SSH_OK)
    throw HostError(options.hostKey + " is no private SSH key without a passphrase; ssh-keygen makes one");
  ssh_key_free(key);
  for (const auto &[user, path] : options.userKeys) {
    if (ssh_pki_import_pubkey_file(path.c_str(), &key) != SSH_OK)
      throw HostError(path + " is no public SSH key; name the file that ends in .pub");
    ssh_key_free(key);
  }
}

void SetUpSsh(const ServerOptions &options) {
  CheckKeys(options);
  const std::string where = options.address + ":" + std::to_string(options.port);
  auto *shared = const_cast<ServerOptions *>(&options);
  nc_server_ssh_set_hostkey_clb(GiveHostKey, shared, nullptr);
  nc_server_ssh_set_passwd_auth_clb(CheckPassword, shared, nullptr);
  Check(nc_server_add_endpt(kSshEndpoint, NC_TI_LIBSSH), "cannot set up SSH");
  Check(nc_server_ssh_endpt_add_hostkey(kSshEndpoint, kHostKeyName, -1),
        "cannot use the host key " + options.hostKey);
  int methods = 0;
  if (!options.userKeys.empty()) methods |= NC_SSH_AUTH_PUBLICKEY;
  if (!options.passwords.empty()) methods |= NC_SSH_AUTH_PASSWORD;
  Check(nc_server_ssh_endpt_set_auth_methods(kSshEndpoint, methods), "cannot set up SSH logins");
  Check(nc_server_ssh_endpt_set_auth_timeout(kSshEndpoint, kAuthSeconds), "cannot set up SSH logins");
  for (const auto &[user, path] : options.userKeys)
    Check(nc_server_ssh_add_authkey_path(path.c_str(), user.c_str()), "cannot use the user key " + path);
  Check(nc_server_endpt_set_address(kSshEndpoint, options.address.c_str()), "cannot listen on " + where);
  Check(nc_server_endpt_set_port(kSshEndpoint, options.port), "cannot listen on " + where);
}

void SetUpUnixSocket(const ServerOptions &options) {
  Check(nc_server_add_endpt(kUnixEndpoint, NC_TI_UNIX), "cannot set up a local socket");
  Check(nc_server_endpt_set_perms(kUnixEndpoint, 0600, -1, -1), "cannot set up a local socket");
  Check(nc_server_endpt_set_address(kUnixEndpoint, options.unixSocket.c_str()),
        "cannot listen on " + options.unixSocket);
}

struct SessionFree {
  void operator()(nc_session *session) const { nc_session_free(session, nullptr); }
};
struct PollFree {
  void operator()(nc_pollsession *sessions) const { nc_ps_free(sessions); }
};

void ServeSession(nc_session *accepted) {
  {
    const std::unique_ptr<nc_session, SessionFree> session(accepted);
    const std::unique_ptr<nc_pollsession, PollFree> sessions(nc_ps_new());
    if (sessions != nullptr && nc_ps_add_session(sessions.get(), accepted) == 0) {
      while (!g_stopping) {
        const int what = nc_ps_poll(sessions.get(), kPollMilliseconds, nullptr);
        if ((what & (NC_PSPOLL_SESSION_TERM | NC_PSPOLL_SESSION_ERROR | NC_PSPOLL_ERROR)) != 0) break;
      }
      nc_ps_del_session(sessions.get(), accepted);
    }
  }
  nc_thread_destroy();
  --g_sessions;
}

void Accept() {
  while (!g_stopping) {
    if (g_sessions >= kMostSessions) {
      usleep(kPollMilliseconds * 1000);
      continue;
    }
    nc_session *session = nullptr;
    if (nc_accept(kPollMilliseconds, &session) != NC_MSG_HELLO) continue;
    ++g_sessions;
    std::thread(ServeSession, session).detach();
  }
  nc_thread_destroy();
}

}  // namespace

void Serve(const ServerOptions &options, const host::Model &model, host::AgentWorker *worker, int stop,
           void (*ready)(const ServerOptions &)) {
  g_verbose = options.verbose;
  nc_verbosity(options.verbose ? NC_VERB_VERBOSE : NC_VERB_ERROR);
  nc_set_print_clb_session(Log);
  Check(nc_server_init(model.context()), "cannot start a NETCONF server");
  SetUpRpcs(&model, worker);
  nc_set_global_rpc_clb(RunRpc);
  nc_server_set_hello_timeout(kHelloSeconds);
  nc_server_set_idle_timeout(kIdleSeconds);
  if (options.ssh) SetUpSsh(options);
  if (!options.unixSocket.empty()) SetUpUnixSocket(options);

  std::vector<std::thread> accepting;
  for (int i = 0; i < kAcceptThreads; ++i) accepting.emplace_back(Accept);
  ready(options);
  pollfd entry{stop, POLLIN, 0};
  while (poll(&entry, 1, -1) < 0) {
  }
  g_stopping = true;
  for (std::thread &thread : accepting) thread.join();
  while (g_sessions > 0) usleep(1000);
  nc_server_destroy();
}

}  // namespace qdt::omad
