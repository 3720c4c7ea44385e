// SPDX-License-Identifier: MIT
// System calls of one thread by the kernel's syscall user dispatch: a byte in memory says whether the
// thread's calls pass or come back as a signal. Unlike a filter of calls it can be taken off again, so that
// threads of others can be watched during their callbacks only.
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <ucontext.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <string>

#include "Tests/Support/RealtimeWatch.h"

#if defined(__x86_64__) && defined(__linux__)

#ifndef PR_SET_SYSCALL_USER_DISPATCH
#define PR_SET_SYSCALL_USER_DISPATCH 59
#define PR_SYS_DISPATCH_OFF 0
#define PR_SYS_DISPATCH_ON 1
#endif

// The only code whose calls always pass: the way out of the signal handler, which closes the trap before it
// leaves. The bytes are those of the C library's own, by which the stack is walked through a handler.
asm(R"(
  .text
  .p2align 4
  .globl vesk_trap_passage
  .hidden vesk_trap_passage
vesk_trap_passage:
  nop
  .globl vesk_trap_return
  .hidden vesk_trap_return
  .type vesk_trap_return, @function
vesk_trap_return:
  mov $15, %rax
  syscall
  .globl vesk_trap_return_at
  .hidden vesk_trap_return_at
  .type vesk_trap_return_at, @function
vesk_trap_return_at:
  mov %rdi, %rsp
  mov $15, %rax
  syscall
  ud2
  .globl vesk_trap_passage_end
  .hidden vesk_trap_passage_end
vesk_trap_passage_end:
)");

extern "C" {
extern const char vesk_trap_passage[];
extern const char vesk_trap_passage_end[];
void vesk_trap_return();
[[noreturn]] void vesk_trap_return_at(std::uintptr_t stack);
}

namespace monitor::test::system_calls {
namespace {

constexpr char kPass = 0;         // SYSCALL_DISPATCH_FILTER_ALLOW
constexpr char kTrap = 1;         // SYSCALL_DISPATCH_FILTER_BLOCK
constexpr int kUserDispatch = 2;  // SYS_USER_DISPATCH, the signal's code

thread_local constinit volatile char selector = kPass;

long call(long number, long a, long b, long c, long d, long e, long f) noexcept {
  long result = number;
  register long r10 asm("r10") = d;
  register long r8 asm("r8") = e;
  register long r9 asm("r9") = f;
  asm volatile("syscall"
               : "+a"(result)
               : "D"(a), "S"(b), "d"(c), "r"(r10), "r"(r8), "r"(r9)
               : "rcx", "r11", "memory");
  return result;
}

// A new thread or process would wake up on a stack of its own inside the handler.
bool startsSomething(long number) noexcept {
  return number == SYS_clone || number == SYS_clone3 || number == SYS_fork || number == SYS_vfork;
}

void onTrappedCall(int, siginfo_t* info, void* context) noexcept {
  auto& machine = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
  if (info->si_code != kUserDispatch) {  // somebody else's SIGSYS: die of it, as without this handler
    signal(SIGSYS, SIG_DFL);
    return;
  }
  selector = kPass;
  const long number = machine[REG_RAX];
  if (number == SYS_rt_sigreturn) {
    // Another handler that ended while the trap was closed. Its frame lies where the stack was.
    const auto stack = static_cast<std::uintptr_t>(machine[REG_RSP]);
    selector = kTrap;
    vesk_trap_return_at(stack);
  }
  noteRealtimeOffence(RealtimeOffence::SystemCall, "system call", number);
  machine[REG_RAX] = startsSomething(number)
                         ? -EAGAIN
                         : call(number, machine[REG_RDI], machine[REG_RSI], machine[REG_RDX],
                                machine[REG_R10], machine[REG_R8], machine[REG_R9]);
  selector = kTrap;
}

// As the kernel wants it. The C library's sigaction would insist on its own way out of the handler.
struct KernelSigaction {
  void (*handler)(int, siginfo_t*, void*);
  unsigned long flags;
  void (*restorer)();
  std::uint64_t mask;
};

long dispatch(bool on) noexcept {
  const auto begin = reinterpret_cast<std::uintptr_t>(vesk_trap_passage);
  const auto end = reinterpret_cast<std::uintptr_t>(vesk_trap_passage_end);
  if (!on) return call(SYS_prctl, PR_SET_SYSCALL_USER_DISPATCH, PR_SYS_DISPATCH_OFF, 0, 0, 0, 0);
  return call(SYS_prctl, PR_SET_SYSCALL_USER_DISPATCH, PR_SYS_DISPATCH_ON, static_cast<long>(begin),
              static_cast<long>(end - begin), reinterpret_cast<long>(&selector), 0);
}

std::string prepare() {
  constexpr unsigned long kRestorer = 0x04000000;  // SA_RESTORER
  const KernelSigaction action{onTrappedCall, SA_SIGINFO | kRestorer, vesk_trap_return, 0};
  if (const long status = dispatch(true); status != 0) {
    return std::string("the kernel offers no syscall user dispatch (") +
           std::strerror(static_cast<int>(-status)) + ')';
  }
  dispatch(false);
  const long status =
      call(SYS_rt_sigaction, SIGSYS, reinterpret_cast<long>(&action), 0, sizeof action.mask, 0, 0);
  return status == 0 ? std::string()
                     : std::string("SIGSYS cannot be handled: ") + std::strerror(static_cast<int>(-status));
}

}  // namespace

const std::string& obstacle() {
  static const std::string text = prepare();
  return text;
}

void install() {
  selector = kPass;
  dispatch(true);
}

void remove() {
  dispatch(false);
}

bool setClosed(bool closed) noexcept {
  const bool was = selector == kTrap;
  selector = closed ? kTrap : kPass;
  return was;
}

const char* name(long number) noexcept {
  switch (number) {
#define VESK_NAME(call) \
  case SYS_##call:      \
    return #call;
    VESK_NAME(brk)
    VESK_NAME(clock_gettime)
    VESK_NAME(clock_nanosleep)
    VESK_NAME(clone)
    VESK_NAME(clone3)
    VESK_NAME(close)
    VESK_NAME(epoll_ctl)
    VESK_NAME(epoll_pwait)
    VESK_NAME(epoll_wait)
    VESK_NAME(eventfd2)
    VESK_NAME(exit)
    VESK_NAME(fcntl)
    VESK_NAME(fork)
    VESK_NAME(fstat)
    VESK_NAME(futex)
    VESK_NAME(getpid)
    VESK_NAME(getrandom)
    VESK_NAME(gettid)
    VESK_NAME(ioctl)
    VESK_NAME(lseek)
    VESK_NAME(madvise)
    VESK_NAME(mmap)
    VESK_NAME(mprotect)
    VESK_NAME(mremap)
    VESK_NAME(munmap)
    VESK_NAME(nanosleep)
    VESK_NAME(newfstatat)
    VESK_NAME(openat)
    VESK_NAME(poll)
    VESK_NAME(ppoll)
    VESK_NAME(prctl)
    VESK_NAME(pread64)
    VESK_NAME(pwrite64)
    VESK_NAME(read)
    VESK_NAME(readv)
    VESK_NAME(recvfrom)
    VESK_NAME(recvmsg)
    VESK_NAME(rt_sigaction)
    VESK_NAME(rt_sigprocmask)
    VESK_NAME(sched_setscheduler)
    VESK_NAME(sched_yield)
    VESK_NAME(sendmsg)
    VESK_NAME(sendto)
    VESK_NAME(tgkill)
    VESK_NAME(timerfd_settime)
    VESK_NAME(vfork)
    VESK_NAME(write)
    VESK_NAME(writev)
#undef VESK_NAME
    default:
      return nullptr;
  }
}

}  // namespace monitor::test::system_calls

#else

namespace monitor::test::system_calls {

const std::string& obstacle() {
  static const std::string text = "known for x86-64 only";
  return text;
}
void install() {}
void remove() {}
bool setClosed(bool) noexcept {
  return false;
}
const char* name(long) noexcept {
  return nullptr;
}

}  // namespace monitor::test::system_calls

#endif
