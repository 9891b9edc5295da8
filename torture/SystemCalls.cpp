#include "torture/SystemCalls.h"

#include <fmt/format.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace Torture {

namespace {

// Has the kernel ask about each call of this thread. Returns the descriptor on which it asks.
int filterThisThread() {
  sock_filter askAlways = BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF);
  const sock_fprog program{1, &askAlways};
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return -1;
  return static_cast<int>(
      ::syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_NEW_LISTENER, &program));
}

}  // namespace

// Answers the kernel's questions, in a thread of its own.
class SystemCalls::Judge {
 public:
  Judge(CallList& list, const Refusal& refusal) : list_(list), refusal_(refusal) {}

  std::atomic<bool> isListing{false};
  std::atomic<int> listener{-1};  // the descriptor on which the kernel asks

  [[noreturn]] void answerAll() {
    while (listener < 0) ::sched_yield();
    for (;;) {
      seccomp_notif question{};
      if (::ioctl(listener, SECCOMP_IOCTL_NOTIF_RECV, &question) != 0) continue;
      seccomp_notif_resp answer{};
      answer.id = question.id;
      answer.error = -errorOf(static_cast<uint16_t>(question.data.nr));
      if (answer.error == 0) answer.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
      ::ioctl(listener, SECCOMP_IOCTL_NOTIF_SEND, &answer);
    }
  }

 private:
  // The error with which the call is refused, or 0. The thread that calls waits meanwhile.
  int errorOf(uint16_t number) {
    if (!isListing) return 0;
    const uint32_t place = list_.count++;
    if (place < list_.numbers.size()) list_.numbers[place] = number;
    if (place < refusal_.at || number != refusal_.number || refusal_.times == 0) return 0;
    --refusal_.times;
    return refusal_.error;
  }

  CallList& list_;
  Refusal refusal_;
};

// The thread that answers is there before the filter, which is therefore not its own; and learns of
// the descriptor without a call of this thread, which would wait for its answer.
SystemCalls::SystemCalls(CallList& list, const Refusal& refusal)
    : judge_(std::make_shared<Judge>(list, refusal)) {
  list.count = 0;
  std::thread([judge = judge_] { judge->answerAll(); }).detach();
  const int listener = filterThisThread();
  if (listener < 0) {
    throw std::runtime_error(fmt::format("no filter of system calls: {}", std::strerror(errno)));
  }
  judge_->listener = listener;
}

std::atomic<bool>& SystemCalls::isListing() { return judge_->isListing; }

}  // namespace Torture
