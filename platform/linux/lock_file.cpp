#include "platform/lock_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>
#include <utility>

#include "platform/error.h"

namespace {

// The system has no file lock that can be waited for with anything else, so it is tried again.
constexpr auto kPause = std::chrono::milliseconds(50);
constexpr int kFlags = O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
constexpr mode_t kOthersBits = S_IRWXG | S_IRWXO;

// EAGAIN while somebody else has the lock.
std::error_code TryToLock(const std::string& path, ScopedFd& locked) {
    ScopedFd file(open(path.c_str(), kFlags, S_IRUSR | S_IWUSR));
    struct stat status {};
    if (!file.IsOpen() || fstat(file.Get(), &status) != 0) {
        return LastSystemError();
    }
    if (!S_ISREG(status.st_mode) || status.st_uid != geteuid() || status.st_nlink > 1 ||
        (status.st_mode & kOthersBits) != 0) {
        return std::make_error_code(std::errc::operation_not_permitted);
    }
    // Who had the lock has deleted the file before giving it back: then there is another file now.
    if (flock(file.Get(), LOCK_EX | LOCK_NB) != 0 || fstat(file.Get(), &status) != 0) {
        return LastSystemError();
    }
    if (status.st_nlink == 0) {
        return std::make_error_code(std::errc::resource_unavailable_try_again);
    }
    locked = std::move(file);
    return {};
}

}  // namespace

std::error_code LockFile::Take(const std::string& path, const std::function<void()>& wait) {
    for (;;) {
        const std::error_code error = TryToLock(path, m_file);
        if (!error) {
            m_path = path;
        }
        if (error != std::errc::resource_unavailable_try_again && error != std::errc::interrupted) {
            return error;
        }
        wait();
        std::this_thread::sleep_for(kPause);
    }
}

LockFile::~LockFile() {
    if (m_file.IsOpen()) {
        (void)unlink(m_path.c_str());
        // Closing alone would leave the lock to a process that was forked meanwhile.
        (void)flock(m_file.Get(), LOCK_UN);
    }
}
