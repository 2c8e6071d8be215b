#include "apps/zelkctl/log_files.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <utility>

#include "apps/zelkctl/agent.h"
#include "apps/zelkctl/output.h"
#include "apps/zelkctl/reply.h"

namespace fs = std::filesystem;

namespace {

// The block of the file that ends at `end`, of `size` bytes.
std::string ReadBlock(std::FILE* file, long end, std::size_t size) {
    std::string block(size, '\0');
    (void)std::fseek(file, end - static_cast<long>(size), SEEK_SET);
    block.resize(std::fread(block.data(), 1, size, file));
    return block;
}

// Where the last lines of the text begin; npos if it has no more than those.
std::size_t BeginOfLast(const std::string& text, std::size_t count) {
    std::size_t end = text.ends_with('\n') ? text.size() - 1 : text.size();
    for (; count > 0 && end != std::string::npos; --count) {
        end = end == 0 ? std::string::npos : text.rfind('\n', end - 1);
    }
    return end == std::string::npos ? end : end + 1;
}

}  // namespace

std::vector<std::string> LogFilesOf(const std::string& workdir) {
    std::error_code error;
    std::vector<std::pair<fs::file_time_type, std::string>> found;
    const fs::path folder = fs::path(workdir) / "log";
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        std::error_code ignored;
        if (entry->path().extension() == ".log" && !entry->is_symlink(ignored)) {
            found.emplace_back(entry->last_write_time(ignored), entry->path().string());
        }
    }
    if (error && error != std::errc::no_such_file_or_directory) {
        throw CommandError(folder.string() + ": " + error.message());
    }
    std::sort(found.begin(), found.end());
    std::vector<std::string> paths;
    paths.reserve(found.size());
    for (auto& [time, path] : found) {
        paths.push_back(std::move(path));
    }
    return paths;
}

std::string CurrentLogOf(const std::string& workdir) {
    try {
        const auto reply = Agent(workdir).Call("GetStatus");
        std::string log = RawMember(MemberPart(MemberPart(reply, "status"), "process"), "log");
        if (!log.empty()) {
            return log;
        }
    } catch (const CommandError& error) {
        if (error.Code() != ExitCode::kNoAgent) {
            Tell(error.what());
        }
    }
    const auto paths = LogFilesOf(workdir);
    if (paths.empty()) {
        throw CommandError(workdir + "/log: there is no log file");
    }
    return paths.back();
}

std::string LastLines(std::FILE* file, std::size_t count) {
    constexpr std::size_t kBlock = 65'536;
    std::string text;
    (void)std::fseek(file, 0, SEEK_END);
    const long end = std::ftell(file);
    for (long begin = end; begin > 0;) {
        const std::size_t size = std::min(kBlock, static_cast<std::size_t>(begin));
        text.insert(0, ReadBlock(file, begin, size));
        begin -= static_cast<long>(size);
        const std::size_t first = BeginOfLast(text, count);
        if (first != std::string::npos) {
            text.erase(0, first);
            break;
        }
    }
    (void)std::fseek(file, end, SEEK_SET);
    return text;
}
