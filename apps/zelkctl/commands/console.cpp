#include <iostream>
#include <memory>
#include <optional>
#include <utility>

#include "apps/zelkctl/commands.h"
#include "apps/zelkctl/history_file.h"
#include "apps/zelkctl/line_editor.h"
#include "apps/zelkctl/output.h"
#include "apps/zelkctl/reply.h"
#include "apps/zelkctl/run_chunk.h"

namespace {

using ZelkaCore::Json;

constexpr std::chrono::seconds kCompletionPatience{2};

// Reads chunks from line to line and has the agent run them.
class Console {
  public:
    // `interrupts` is null if nobody sits there.
    Console(const Options& options, const Interrupts* interrupts)
        : m_options(options), m_interrupts(interrupts) {
        Connect();
    }

    // False if the end came inside a chunk, or one has failed.
    bool Run(LineSource& source);

    std::vector<std::string> Candidates(const std::string& text);

    [[nodiscard]] std::string Greeting() const;

  private:
    void Connect();
    void TakeLine(const std::string& line);
    [[nodiscard]] ChunkEnd RunText();

    const Options& m_options;
    const Interrupts* m_interrupts;
    std::optional<Agent> m_agent;
    Json m_status;       // of the agent when it was connected to
    std::string m_text;  // the lines of a chunk that lacks its end
    bool m_hasFailed = false;
};

bool IsBlank(const std::string& text) {
    return text.find_first_not_of(" \t\n") == std::string::npos;
}

bool Console::Run(LineSource& source) {
    for (;;) {
        std::string line;
        switch (source.Read(m_text.empty() ? "> " : ">> ", line)) {
            case LineSource::End::kOver:
                if (!m_text.empty()) {
                    Tell("the last chunk lacks its end");
                }
                return m_text.empty() && !m_hasFailed;
            case LineSource::End::kCancelled:
                m_text.clear();
                break;
            case LineSource::End::kLine:
                TakeLine(line);
                break;
        }
    }
}

void Console::TakeLine(const std::string& line) {
    m_text += line + "\n";
    if (IsBlank(m_text)) {
        m_text.clear();
        return;
    }
    ChunkEnd end = ChunkEnd::kFailed;
    try {
        end = RunText();
    } catch (const CommandError& error) {
        // Whatever may still come belongs to this chunk, and to none that follows.
        m_agent.reset();
        if (m_interrupts == nullptr && error.Code() == ExitCode::kNoAgent) {
            throw;
        }
        Tell(error.what());
    }
    if (end == ChunkEnd::kInterrupted) {
        m_agent.reset();  // which cancels it
        Print("\n");
        Tell("cancelled");
    }
    m_hasFailed = m_hasFailed || end == ChunkEnd::kFailed;
    if (end != ChunkEnd::kIncomplete) {
        m_text.clear();
    }
}

ChunkEnd Console::RunText() {
    if (!m_agent || m_agent->IsGone()) {
        Connect();
    }
    if (m_interrupts != nullptr) {
        m_interrupts->Clear();
    }
    return RunChunk(*m_agent, {m_text, "console", true}, m_options.isJson, m_interrupts);
}

void Console::Connect() {
    m_agent.reset();
    Agent agent(m_options.workdir);
    const Json reply = agent.Call("GetStatus");
    const Json& status = MemberPart(reply, "status");
    const auto identity = [](const Json& told) {
        return std::pair(MemberText(told, "started"),
                         MemberText(MemberPart(told, "process"), "pid"));
    };
    if (!m_status.is_null() && identity(m_status) != identity(status)) {
        Tell("the agent was restarted: this is another run of it, process " +
             identity(status).second);
    }
    m_status = status;
    m_agent.emplace(std::move(agent));
}

std::string Console::Greeting() const {
    return MemberText(m_status, "name") + " " + MemberText(m_status, "version") + ", process " +
           MemberText(MemberPart(m_status, "process"), "pid") +
           ". Tab completes, Ctrl-C cancels, Ctrl-D leaves.";
}

std::vector<std::string> Console::Candidates(const std::string& text) {
    try {
        if (!m_agent || m_agent->IsGone()) {
            Connect();
        }
        const Json reply = m_agent->Call("Complete", Json{{"text", text}}, kCompletionPatience);
        std::vector<std::string> candidates;
        for (const Json& candidate : MemberPart(reply, "candidates")) {
            candidates.push_back(RawText(candidate));
        }
        return candidates;
    } catch (const CommandError&) {
        m_agent.reset();  // a late answer is none to what follows
        throw;
    }
}

// The lines of standard input, as they are.
class PlainLines : public LineSource {
  public:
    End Read(const std::string&, std::string& line) override {
        return std::getline(std::cin, line) ? End::kLine : End::kOver;
    }
};

// Lines from a terminal, which are remembered.
class RememberedLines : public LineSource {
  public:
    explicit RememberedLines(LineEditor::Completer completer)
        : m_editor(std::move(completer), m_history.Lines()) {}

    End Read(const std::string& prompt, std::string& line) override {
        FlushOutput();
        const End end = m_editor.Read(prompt, line);
        if (end == End::kLine && !IsBlank(line) && m_history.Add(line)) {
            m_editor.Remember(line);
        }
        return end;
    }

  private:
    HistoryFile m_history;
    LineEditor m_editor;
};

void RunConsole(const Options& options) {
    if (!IsTerminal(stdin) || !IsTerminal(stdout)) {
        PlainLines lines;
        if (!Console(options, nullptr).Run(lines)) {
            throw QuietFailure();
        }
        return;
    }
    Interrupts interrupts;
    if (const auto error = interrupts.Open()) {
        throw CommandError("Ctrl-C: " + error.message());
    }
    Console console(options, &interrupts);
    RememberedLines lines([&console](const std::string& text) { return console.Candidates(text); });
    PrintLine(console.Greeting());
    (void)console.Run(lines);
}

}  // namespace

void AddConsoleCommand(CLI::App& app, const Options& options) {
    app.add_subcommand("console", "Runs Lua text in the agent line by line")->callback([&options] {
        RunConsole(options);
    });
}
