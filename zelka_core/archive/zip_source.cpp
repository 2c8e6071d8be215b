#include "zelka_core/archive/zip_source.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <span>
#include <system_error>
#include <utility>
#include <vector>

namespace ZelkaCore {

namespace {

constexpr std::size_t kReadAhead = 0x10000;

class Source {
  public:
    Source(FileStream file, std::uint64_t begin, std::uint64_t size)
        : m_file(std::move(file)), m_begin(begin), m_size(size) {
        m_ahead.reserve(std::min<std::uint64_t>(size, kReadAhead));
        zip_error_init(&m_error);
    }
    ~Source() { zip_error_fini(&m_error); }
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    static zip_int64_t Answer(void* state, void* data, zip_uint64_t length,
                              zip_source_cmd_t command) {
        auto* source = static_cast<Source*>(state);
        switch (command) {
            case ZIP_SOURCE_SUPPORTS:
                return zip_source_make_command_bitmap(
                    ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE, ZIP_SOURCE_STAT,
                    ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE, ZIP_SOURCE_SEEK, ZIP_SOURCE_TELL, -1);
            case ZIP_SOURCE_OPEN:
                source->m_at = 0;
                return 0;
            case ZIP_SOURCE_READ:
                return source->Read({static_cast<char*>(data), length});
            case ZIP_SOURCE_STAT:
                return source->Describe(data, length);
            case ZIP_SOURCE_SEEK:
                return source->Seek(data, length);
            case ZIP_SOURCE_TELL:
                return static_cast<zip_int64_t>(source->m_at);
            case ZIP_SOURCE_ERROR:
                return zip_error_to_data(&source->m_error, data, length);
            case ZIP_SOURCE_FREE: {
                const std::unique_ptr<Source> owned(source);
                return 0;
            }
            case ZIP_SOURCE_CLOSE:
                return 0;
            default:
                zip_error_set(&source->m_error, ZIP_ER_OPNOTSUPP, 0);
                return -1;
        }
    }

  private:
    // What libzip asks for is a few kilobytes at a time, mostly where the last piece ended.
    zip_int64_t Read(std::span<char> wanted) {
        wanted = wanted.first(std::min<std::uint64_t>(wanted.size(), m_size - m_at));
        std::size_t got = 0;
        while (got < wanted.size()) {
            if (m_at < m_aheadAt || m_at >= m_aheadAt + m_ahead.size()) {
                if (!Fill()) {
                    return -1;
                }
                if (m_ahead.empty()) {
                    break;  // the file has become shorter
                }
            }
            const std::size_t offset = m_at - m_aheadAt;
            const std::size_t size = std::min(wanted.size() - got, m_ahead.size() - offset);
            std::memcpy(wanted.data() + got, m_ahead.data() + offset, size);
            got += size;
            m_at += size;
        }
        return static_cast<zip_int64_t>(got);
    }

    bool Fill() {
        m_ahead.resize(std::min<std::uint64_t>(kReadAhead, m_size - m_at));
        std::size_t got = 0;
        const auto error = ReadAt(m_file.get(), m_begin + m_at, m_ahead, got);
        m_ahead.resize(got);
        m_aheadAt = m_at;
        if (error) {
            zip_error_set(&m_error, ZIP_ER_READ, error.value());
        }
        return !error;
    }

    zip_int64_t Describe(void* data, zip_uint64_t length) {
        if (length < sizeof(zip_stat_t)) {
            zip_error_set(&m_error, ZIP_ER_INVAL, 0);
            return -1;
        }
        auto* status = static_cast<zip_stat_t*>(data);
        zip_stat_init(status);
        status->size = m_size;
        status->valid = ZIP_STAT_SIZE;
        return sizeof(zip_stat_t);
    }

    zip_int64_t Seek(void* data, zip_uint64_t length) {
        const zip_int64_t target =
            zip_source_seek_compute_offset(m_at, m_size, data, length, &m_error);
        if (target < 0) {
            return -1;
        }
        m_at = static_cast<std::uint64_t>(target);
        return 0;
    }

    const FileStream m_file;
    const std::uint64_t m_begin;
    const std::uint64_t m_size;
    std::uint64_t m_at = 0;
    std::uint64_t m_aheadAt = 0;  // where what was read ahead begins
    std::vector<char> m_ahead;
    zip_error_t m_error{};
};

}  // namespace

zip_source_t* MakeZipSource(FileStream file, std::uint64_t begin, std::uint64_t size) {
    auto source = std::make_unique<Source>(std::move(file), begin, size);
    zip_source_t* made = zip_source_function_create(&Source::Answer, source.get(), nullptr);
    if (made != nullptr) {
        (void)source.release();
    }
    return made;
}

}  // namespace ZelkaCore
