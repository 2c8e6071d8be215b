#include <sys/statvfs.h>

#include <algorithm>
#include <cstdint>
#include <limits>

#include "platform/tree_writer.h"

namespace {

constexpr std::uint64_t kLeastReserve = 0x4000000;

// What is left of `free` without the reserve.
std::uint64_t LessReserve(std::uint64_t free, std::uint64_t total, std::uint64_t least) {
    const std::uint64_t reserve = std::min(std::max(total / 20, least), total / 4);
    return free - std::min(free, reserve);
}

}  // namespace

TreeWriter::Room TreeWriter::RoomLeft() const {
    struct statvfs status {};
    if (fstatvfs(m_tree.Root()->fd.Get(), &status) != 0) {
        return {};
    }
    const std::uint64_t block = std::max<std::uint64_t>(status.f_frsize, 1);
    const std::uint64_t least = (kLeastReserve + block - 1) / block;
    return {.blockSize = block,
            .bytes = LessReserve(status.f_bavail, status.f_blocks, least) * block,
            .files = status.f_files == 0 ? std::numeric_limits<std::uint64_t>::max()
                                         : LessReserve(status.f_favail, status.f_files, 0)};
}
