#include "platform/folder_watch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstring>
#include <utility>

#include "platform/error.h"

namespace {

constexpr std::uint32_t kChanges = IN_CREATE | IN_DELETE | IN_MODIFY | IN_MOVE;
constexpr std::uint32_t kFolderGone = IN_DELETE_SELF | IN_MOVE_SELF;

// Whether one of these records says that the folder has gone.
bool TellsOfTheEnd(const char* records, std::size_t size) {
    bool isOver = false;
    while (size >= sizeof(inotify_event)) {
        inotify_event event;
        std::memcpy(&event, records, sizeof event);
        isOver = isOver || (event.mask & (kFolderGone | IN_IGNORED | IN_UNMOUNT)) != 0;
        const std::size_t length = sizeof event + event.len;
        records += length;
        size -= length;
    }
    return isOver;
}

}  // namespace

std::error_code FolderWatch::Open(const std::string& folder) {
    ScopedFd opened(inotify_init1(IN_CLOEXEC));
    if (!opened.IsOpen() ||
        inotify_add_watch(opened.Get(), folder.c_str(), kChanges | kFolderGone | IN_ONLYDIR) < 0) {
        return LastSystemError();
    }
    m_events = std::move(opened);
    return {};
}

std::error_code FolderWatch::Wait() {
    char records[16 * (sizeof(inotify_event) + NAME_MAX + 1)];
    for (;;) {
        const ssize_t size = read(m_events.Get(), records, sizeof records);
        if (size > 0) {
            return TellsOfTheEnd(records, static_cast<std::size_t>(size))
                       ? std::make_error_code(std::errc::no_such_file_or_directory)
                       : std::error_code();
        }
        if (errno != EINTR) {
            return LastSystemError();
        }
    }
}
