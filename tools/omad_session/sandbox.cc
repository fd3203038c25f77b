#include "tools/omad_session/sandbox.h"

#include <grp.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <iterator>
#include <vector>

#include "host/base/fd.h"
#include "host/base/host_error.h"
#include "host/base/sanitized.h"

#if defined(__x86_64__)
#define QDT_AUDIT_ARCH AUDIT_ARCH_X86_64
#elif defined(__aarch64__)
#define QDT_AUDIT_ARCH AUDIT_ARCH_AARCH64
#endif

namespace qdt::omad {
namespace {

// The user that owns nothing, on every Linux system.
constexpr uid_t kNobody = 65534;
constexpr rlim_t kMemory = 512u << 20;

// What reading, writing and allocating come to. No signals: other sessions may be the same user's.
[[maybe_unused]] constexpr long kCalls[] = {
    SYS_read,      SYS_write,  SYS_sendto,     SYS_recvfrom,     SYS_ppoll,           SYS_close,
    SYS_brk,       SYS_mmap,   SYS_munmap,     SYS_mremap,       SYS_mprotect,        SYS_madvise,
    SYS_futex,     SYS_exit,   SYS_exit_group, SYS_rt_sigreturn, SYS_rt_sigprocmask,  SYS_clock_gettime,
    SYS_getrandom, SYS_fstat,  SYS_newfstatat, SYS_lseek,        SYS_restart_syscall, SYS_getpid,
    SYS_gettid,    SYS_writev, SYS_setitimer,
#ifdef SYS_poll
    SYS_poll,
#endif
};

void Bound(int what, rlim_t most) {
  const rlimit limit{most, most};
  if (setrlimit(static_cast<__rlimit_resource>(what), &limit) != 0)
    throw host::SystemError("cannot bound a session");
}

void LeaveRoot() {
  if (geteuid() != 0) return;
  if (setgroups(0, nullptr) != 0 || setresgid(kNobody, kNobody, kNobody) != 0 ||
      setresuid(kNobody, kNobody, kNobody) != 0 || setuid(0) == 0)
    throw host::SystemError("cannot give root's rights away");
}

// Every other call fails as one that is not permitted.
void AllowOnlyCalls() {
#if defined(QDT_AUDIT_ARCH)
  std::vector<sock_filter> program{
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, arch)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, QDT_AUDIT_ARCH, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
  };
  for (const long call : kCalls) {
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<uint32_t>(call), 0, 1));
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  }
  program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM));
  sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
  // A kernel without the facility still has all that is done beside this.
  if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0 && errno != EINVAL)
    throw host::SystemError("cannot bound a session's calls");
#endif
}

}  // namespace

void EnterSandbox() {
  LeaveRoot();
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) throw host::SystemError("cannot give rights away");
  Bound(RLIMIT_CORE, 0);
  if (host::kSanitized) return;
  if (prctl(PR_SET_DUMPABLE, 0) != 0) throw host::SystemError("cannot give rights away");
  Bound(RLIMIT_AS, kMemory);
  AllowOnlyCalls();
}

}  // namespace qdt::omad
