#include "apps/zelkctl/check/start.h"

#include <wx/cmdline.h>
#include <wx/filename.h>
#include <wx/msgout.h>

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "apps/start/command_line.h"
#include "apps/start/program_paths.h"
#include "apps/zelkctl/reply.h"
#include "apps/zelkctl/zelkctl.h"
#include "zelka_core/text.h"

namespace fs = std::filesystem;
using ZelkaCore::CDom;
using ZelkaCore::FromUtf8;
using ZelkaCore::ToUtf8;

namespace {

// Keeps what the framework tells while it lives.
class CapturedMessages : public wxMessageOutput {
  public:
    CapturedMessages() : m_outer(wxMessageOutput::Set(this)) {}
    ~CapturedMessages() override { (void)wxMessageOutput::Set(m_outer); }
    CapturedMessages(const CapturedMessages&) = delete;
    CapturedMessages& operator=(const CapturedMessages&) = delete;

    void Output(const wxString& text) override { m_text += text; }
    [[nodiscard]] const wxString& Text() const { return m_text; }

  private:
    wxMessageOutput* m_outer;
    wxString m_text;
};

// The framework takes them as wide text; arguments of the application may be any bytes.
std::vector<std::wstring> WideWords(const std::vector<std::string>& words) {
    std::vector<std::wstring> wide;
    wide.reserve(words.size());
    for (const std::string& word : words) {
        wide.push_back(FromUtf8(word).ToStdWstring());
    }
    return wide;
}

[[noreturn]] void Refuse(const StartCommand& command, const wxString& text) {
    const std::string reason = ToUtf8(wxString(text).Trim());
    if (command.unit.empty()) {
        throw CommandError(Shown(reason), ExitCode::kUsage);
    }
    throw CommandError(command.unit + ": " + Shown(reason));
}

void Parse(const StartCommand& command, wxCmdLineParser& parser) {
    const auto end = std::find(command.words.begin(), command.words.end(), "--");
    if (!std::all_of(command.words.begin(), end, ZelkaCore::IsValidUtf8)) {
        Refuse(command, "an option of the agent is not valid UTF-8");
    }
    std::vector<std::wstring> words = WideWords(command.words);
    std::vector<wchar_t*> pointers;
    pointers.reserve(words.size());
    for (std::wstring& word : words) {
        pointers.push_back(word.data());
    }
    AddStartOptions(parser);
    // What the framework adds by itself in an application.
    parser.AddSwitch("h", "help", "", wxCMD_LINE_OPTION_HELP);
    parser.AddSwitch("", "verbose");
    parser.SetCmdLine(static_cast<int>(pointers.size()), pointers.data());
    const CapturedMessages messages;
    if (parser.Parse(false) != 0) {
        Refuse(command,
               messages.Text().empty() ? "a start with --help starts nothing" : messages.Text());
    }
}

// The program's path with links resolved, as the system tells it to a process.
wxFileName ProgramOf(const StartCommand& command, Findings& findings) {
    std::error_code error;
    const fs::path given = command.words.front();
    fs::path program = fs::canonical(given, error);
    if (error) {
        findings.Error(given.string(), "the program is not there: " + error.message());
        program = fs::absolute(given).lexically_normal();
    }
    return {FromUtf8(program.string()), wxPATH_NATIVE};
}

}  // namespace

Start ReadStart(const StartCommand& command, Findings& findings) {
    wxCmdLineParser parser;
    Parse(command, parser);
    Start start;
    start.dom.reset(CDom::New(nullptr, nullptr, nullptr, false));
    PublishProgramPaths(ProgramOf(command, findings), *start.dom);
    const wxFileName called(FromUtf8(command.words.front()));
    const wxFileName executable(start.dom->GetWxString("app.path.bin"), called.GetFullName());
    start.identity = SettleIdentity(parser, called.GetName(), executable, *start.dom);
    start.installsPackages = parser.Found("install_plugins");
    (void)parser.Found("extdir", &start.extDir);
    if (!TakeLuaPaths(parser, *start.dom, start.zipPath)) {
        findings.Error("", "the option zippath names a file outside of the program's folder");
    }
    // A registry value that is not there is told by the registry's own check.
    start.workdir = ChooseWorkdir(parser, executable, [](const wxString&) {});
    PublishWorkdir(start.workdir.folder, *start.dom);
    for (const wxString& invalid : TakeDomainVariables(parser, *start.dom)) {
        findings.Warning("", "the option domain_var is not of the form NAME=VALUE, and ignored: " +
                                 ToUtf8(invalid));
    }
    // Nothing of this look goes into a trace.
    (void)start.dom->SetNil("app.trace");
    (void)start.dom->SetNil("app.trace+");
    return start;
}
