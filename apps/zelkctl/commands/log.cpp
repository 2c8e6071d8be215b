#include <cstdio>
#include <memory>

#include "apps/zelkctl/commands.h"
#include "apps/zelkctl/log_files.h"
#include "apps/zelkctl/log_reader.h"
#include "apps/zelkctl/output.h"
#include "apps/zelkctl/reply.h"
#include "platform/folder_watch.h"

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
        log.ReadOn([&lines](std::string_view bytes) { lines.Take(bytes); });
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
