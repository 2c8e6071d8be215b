#include "platform/linux/killed_programs.h"

#include <poll.h>
#include <sys/wait.h>

#include <cerrno>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

#include "platform/linux/pidfd.h"

namespace {

constexpr int kPatienceMs = 100;

std::mutex g_mutex;
std::vector<ScopedFd> g_leftOver;  // guarded by g_mutex

// Whether it is a child no more.
bool IsCollected(const ScopedFd& process) {
    siginfo_t status = {};
    const auto id = static_cast<id_t>(process.Get());
    return waitid(P_PIDFD, id, &status, WEXITED | WNOHANG) == 0 ? status.si_pid != 0
                                                                : errno != EINTR;
}

}  // namespace

void CollectKilled(pid_t pid, ScopedFd process) noexcept {
    if (!process.IsOpen()) {
        while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
        }
        return;
    }
    pollfd waited{process.Get(), POLLIN, 0};
    (void)poll(&waited, 1, kPatienceMs);
    if (IsCollected(process)) {
        return;
    }
    try {
        const std::lock_guard lock(g_mutex);
        g_leftOver.push_back(std::move(process));
    } catch (const std::bad_alloc&) {
        // It stays in the system's table until this process ends.
    }
}

void CollectLeftOver() {
    const std::lock_guard lock(g_mutex);
    std::erase_if(g_leftOver, IsCollected);
}
