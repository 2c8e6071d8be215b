#include "apps/zelkctl/log_reader.h"

#include <cstdio>
#include <utility>

#include "apps/zelkctl/output.h"
#include "platform/folder_tree.h"

namespace {

constexpr int kMostKept = 5;
constexpr int kGone = kMostKept + 1;

bool IsAt(const std::string& path, const FileIdentity& file) {
    std::optional<FileIdentity> named;
    return !IdentityOf(path, named) && named == file;
}

}  // namespace

void LogReader::ReadOn(const Take& take) {
    for (;;) {
        Drain(take);
        FileStream next = Next();
        if (!next) {
            return;
        }
        Drain(take);  // nothing more is written to it by now
        if (std::exchange(m_isInLine, false)) {
            take("\n");
        }
        m_file = std::move(next);
    }
}

void LogReader::Drain(const Take& take) {
    char block[65'536];
    std::clearerr(m_file.get());
    while (const std::size_t size = std::fread(block, 1, sizeof block, m_file.get())) {
        m_isInLine = block[size - 1] != '\n';
        take({block, size});
    }
}

std::string LogReader::KeptPath(int age) const {
    return age == 0 ? m_path
                    : m_path.substr(0, m_path.rfind('.')) + "." + std::to_string(age) + ".log";
}

FileIdentity LogReader::Mine() const {
    const FileVersion version = VersionOf(m_file.get());
    return {version.device, version.inode};
}

// How many newer files there are. They only ever get older, so that none is passed over.
int LogReader::Age() const {
    int age = 0;
    while (age < kGone && !IsAt(KeptPath(age), Mine())) {
        ++age;
    }
    return age;
}

// The file that was begun behind this one; none if there is none yet.
FileStream LogReader::Next() const {
    for (;;) {
        FileStream next;
        const int age = Age();
        if (age == 0) {
            const bool isShortened = VersionOf(m_file.get()).size < std::ftell(m_file.get());
            if (isShortened) {
                (void)OpenRegularStream(m_path, next);
            }
            return next;
        }
        if (age == kGone) {
            return OldestKept();
        }
        if (OpenRegularStream(KeptPath(age - 1), next)) {
            return {};  // they are being renamed, which is told
        }
        if (IsAt(KeptPath(age), Mine())) {
            return next;
        }
    }
}

FileStream LogReader::OldestKept() const {
    FileStream oldest;
    for (int age = kMostKept; age >= 0 && OpenRegularStream(KeptPath(age), oldest); --age) {
    }
    if (oldest) {
        Tell("lines may be missing here: files of the log have gone before they were read");
    }
    return oldest;
}
