#include <cstdio>
#include <memory>
#include <optional>

#include "apps/zelkctl/commands.h"
#include "apps/zelkctl/log_files.h"
#include "apps/zelkctl/output.h"
#include "apps/zelkctl/reply.h"
#include "platform/file.h"
#include "platform/folder_tree.h"
#include "platform/folder_watch.h"
#include "platform/private_file.h"

namespace {

struct Arguments {
    bool follows = false;
    std::size_t count = 40;
};

// The lines of the log as they are printed. A line is printed when its end has come.
class LinePrinter {
  public:
    explicit LinePrinter(bool isJson) : m_isJson(isJson) {}

    void Take(std::string_view bytes) {
        m_begun += bytes;
        std::size_t begin = 0;
        for (auto end = m_begun.find('\n'); end != std::string::npos;
             end = m_begun.find('\n', begin)) {
            PrintOne(m_begun.substr(begin, end - begin));
            begin = end + 1;
        }
        m_begun.erase(0, begin);
        FlushOutput();
    }

    // What is there is the whole line.
    void End() {
        if (!m_begun.empty()) {
            Take("\n");
        }
    }

  private:
    void PrintOne(const std::string& line) const {
        if (m_isJson) {
            PrintJson(ZelkaCore::Json{{"line", line}});
        } else {
            PrintLine(ShownLines(line));
        }
    }

    bool m_isJson;
    std::string m_begun;
};

// A log file from where it was opened on.
class LogReader {
  public:
    explicit LogReader(const std::string& path) : m_path(path) {}

    // The file that has the name now.
    std::error_code Open() { return OpenRegularStream(m_path, m_file); }

    [[nodiscard]] std::FILE* File() const { return m_file.get(); }

    // Hands on what has been written, also that to a file that has the name by now.
    void ReadOn(LinePrinter& lines) {
        Drain(lines);
        const FileVersion mine = VersionOf(m_file.get());
        std::optional<FileIdentity> named;
        if (IdentityOf(m_path, named) || !named) {
            return;  // it is being renamed: a new one follows
        }
        const bool isShortened = mine.size < std::ftell(m_file.get());
        if (*named == FileIdentity{mine.device, mine.inode} && !isShortened) {
            return;
        }
        Drain(lines);
        lines.End();
        if (!Open()) {
            Drain(lines);
        }
    }

  private:
    void Drain(LinePrinter& lines) {
        char block[65'536];
        std::clearerr(m_file.get());
        while (const std::size_t size = std::fread(block, 1, sizeof block, m_file.get())) {
            lines.Take({block, size});
        }
    }

    std::string m_path;
    FileStream m_file;
};

void RunLog(const Options& options, const Arguments& given) {
    const std::string path = CurrentLogOf(options.workdir);
    const auto check = [&path](const std::error_code& error) {
        if (error) {
            throw CommandError(path + ": " + error.message());
        }
    };
    FolderWatch watch;
    if (given.follows) {
        check(watch.Open(path.substr(0, path.rfind('/') + 1)));
    }
    LogReader log(path);
    check(log.Open());
    LinePrinter lines(options.isJson);
    lines.Take(LastLines(log.File(), given.count));
    if (!given.follows) {
        lines.End();
    }
    while (given.follows) {
        log.ReadOn(lines);
        check(watch.Wait());
    }
}

}  // namespace

void AddLogCommand(CLI::App& app, const Options& options) {
    auto* command = app.add_subcommand("log", "The last lines of the log, also without an agent");
    auto given = std::make_shared<Arguments>();
    command->add_flag("-f,--follow", given->follows, "go on with those that come, until Ctrl-C");
    command->add_option("-n", given->count, "so many lines")->type_name("N")->capture_default_str();
    command->callback([&options, given] { RunLog(options, *given); });
}
