#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

// Usage: container-filter PROGRAM [ARGUMENT ...]
//
// Becomes a program that lives under a filter of system calls like that of an ordinary container:
// what makes namespaces and mounts, or is the administrator's of the whole machine, answers EPERM.
// Needs CAP_SYS_ADMIN; the filter stays when that is given up.
namespace {

constexpr std::uint32_t kNewNamespaces = CLONE_NEWNS | CLONE_NEWCGROUP | CLONE_NEWUTS |
                                         CLONE_NEWIPC | CLONE_NEWUSER | CLONE_NEWPID | CLONE_NEWNET;

constexpr long kRefused[] = {
    SYS_unshare,      SYS_setns,         SYS_mount,    SYS_umount2,           SYS_pivot_root,
    SYS_open_tree,    SYS_move_mount,    SYS_fsopen,   SYS_fsconfig,          SYS_fsmount,
    SYS_fspick,       SYS_mount_setattr, SYS_bpf,      SYS_open_by_handle_at, SYS_swapon,
    SYS_swapoff,      SYS_reboot,        SYS_quotactl, SYS_perf_event_open,   SYS_init_module,
    SYS_finit_module, SYS_delete_module, SYS_keyctl,   SYS_add_key,           SYS_request_key,
    SYS_userfaultfd,  SYS_fanotify_init};

using Filter = std::vector<sock_filter>;

constexpr std::uint32_t refusal(int error) {
  return SECCOMP_RET_ERRNO | static_cast<std::uint32_t>(error);
}

// With `skipped` instructions to leave out when the value in the accumulator is another one.
sock_filter unlessEqual(long value, std::uint8_t skipped) {
  return BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(value), 0, skipped);
}

sock_filter answer(std::uint32_t action) {
  return BPF_STMT(BPF_RET | BPF_K, action);
}

sock_filter load(std::size_t offset) {
  return BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(offset));
}

Filter filter() {
  Filter result = {load(offsetof(seccomp_data, nr))};
  for (const long call : kRefused) {
    result.push_back(unlessEqual(call, 1));
    result.push_back(answer(refusal(EPERM)));
  }
  // Its flags lie behind a pointer where no filter looks; the library then takes the older call.
  result.push_back(unlessEqual(SYS_clone3, 1));
  result.push_back(answer(refusal(ENOSYS)));
  result.push_back(unlessEqual(SYS_clone, 3));
  result.push_back(load(offsetof(seccomp_data, args)));
  result.push_back(BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, kNewNamespaces, 0, 1));
  result.push_back(answer(refusal(EPERM)));
  result.push_back(answer(SECCOMP_RET_ALLOW));
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fputs("usage: container-filter PROGRAM [ARGUMENT ...]\n", stderr);
    return 2;
  }
  Filter instructions = filter();
  const sock_fprog program = {static_cast<unsigned short>(instructions.size()),
                              instructions.data()};
  if (::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
    std::perror("container-filter: no filter can be set");
    return 1;
  }
  ::execvp(argv[1], argv + 1);
  std::perror(argv[1]);
  return 1;
}
