#include "platform/linux/tree_cleanup.h"

#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "platform/error.h"
#include "platform/linux/folder_access.h"
#include "platform/linux/folder_path.h"
#include "platform/tree_writer.h"

namespace {

// Walks a tree with one descriptor: up again by "..", which has to be where it came from.
class Cleanup {
  public:
    explicit Cleanup(std::string prefix) : m_prefix(std::move(prefix)) {}

    std::error_code Run(ScopedFd folder) {
        m_current = std::move(folder);
        Enter("", false);
        while (!m_levels.empty()) {
            std::vector<std::string>& waiting = m_levels.back().waiting;
            if (!waiting.empty()) {
                const std::string name = std::move(waiting.back());
                waiting.pop_back();
                Descend(name);
            } else if (!Leave()) {
                break;
            }
        }
        return m_first;
    }

  private:
    struct Level {
        dev_t device = 0;
        ino_t inode = 0;
        std::string name;
        bool isTemporary = false;          // itself, so all of it goes
        std::vector<std::string> waiting;  // folders that were not entered yet
    };

    // What is gone meanwhile is no trouble.
    void Note(std::error_code error) {
        if (error && !m_first && error != std::errc::no_such_file_or_directory) {
            m_first = error;
        }
    }

    void Descend(const std::string& name) {
        ScopedFd fd(openat(m_current.Get(), name.c_str(), kOpenFolder | O_NOFOLLOW));
        if (!fd.IsOpen()) {
            Note(LastSystemError());
            return;
        }
        m_current = std::move(fd);
        Enter(name, m_levels.back().isTemporary || name.starts_with(m_prefix));
    }

    // Clears the current folder itself.
    void Enter(const std::string& name, bool isTemporary) {
        struct stat status {};
        (void)fstat(m_current.Get(), &status);
        Level& level = m_levels.emplace_back();
        level.device = status.st_dev;
        level.inode = status.st_ino;
        level.name = name;
        level.isTemporary = isTemporary;
        Note(VisitEntries(m_current.Get(), [&](const dirent& entry) {
            Take(entry.d_name, entry.d_type, level);
            return std::error_code();
        }));
    }

    // What is neither a temporary file nor a folder is passed over.
    void Take(const std::string& name, unsigned type, Level& level) {
        struct stat status {};
        if (type == DT_UNKNOWN &&
            fstatat(m_current.Get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
            type = IFTODT(status.st_mode);
        }
        if (type == DT_DIR) {
            level.waiting.push_back(name);
        } else if ((level.isTemporary || (type == DT_REG && name.starts_with(m_prefix))) &&
                   unlinkat(m_current.Get(), name.c_str(), 0) != 0) {
            Note(LastSystemError());
        }
    }

    // False at the end of the walk, also when the folder was moved elsewhere meanwhile.
    bool Leave() {
        const Level left = std::move(m_levels.back());
        m_levels.pop_back();
        if (m_levels.empty()) {
            return false;
        }
        ScopedFd up(openat(m_current.Get(), "..", kOpenFolder));
        struct stat status {};
        if (!up.IsOpen() || fstat(up.Get(), &status) != 0) {
            Note(LastSystemError());
            return false;
        }
        if (status.st_dev != m_levels.back().device || status.st_ino != m_levels.back().inode) {
            Note(std::make_error_code(std::errc::resource_unavailable_try_again));
            return false;
        }
        m_current = std::move(up);
        if (left.isTemporary && unlinkat(m_current.Get(), left.name.c_str(), AT_REMOVEDIR) != 0) {
            Note(LastSystemError());
        }
        return true;
    }

    const std::string m_prefix;
    ScopedFd m_current;
    std::vector<Level> m_levels;
    std::error_code m_first;
};

}  // namespace

std::error_code RemoveTemporaryFilesBelow(const std::string& folder,
                                          const std::string& temporaryPrefix) {
    ScopedFd opened(open(folder.c_str(), kOpenFolder));
    return opened.IsOpen() ? RemoveTemporaryFilesBelow(std::move(opened), temporaryPrefix)
                           : LastSystemError();
}

std::error_code RemoveTemporaryFilesBelow(ScopedFd folder, const std::string& temporaryPrefix) {
    return Cleanup(temporaryPrefix).Run(std::move(folder));
}
