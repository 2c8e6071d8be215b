#include "apps/zelkctl/line_editor.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "apps/zelkctl/reply.h"
#include "apps/zelkctl/table.h"

namespace {

constexpr int kRemembered = 1000;  // lines

// The end of the text that names something: a name, or members of one.
std::string NameAtEnd(std::string_view text) {
    std::size_t begin = text.size();
    const auto isOfName = [](char character) {
        return std::isalnum(static_cast<unsigned char>(character)) != 0 || character == '_' ||
               character == '.' || character == ':';
    };
    while (begin > 0 && isOfName(text[begin - 1])) {
        --begin;
    }
    return std::string(text.substr(begin));
}

// What all candidates begin with.
std::string CommonBegin(const std::vector<std::string>& candidates) {
    std::string common = candidates.front();
    for (const std::string& candidate : candidates) {
        const auto differs =
            std::mismatch(common.begin(), common.end(), candidate.begin(), candidate.end());
        common.erase(differs.first, common.end());
    }
    return common;
}

}  // namespace

LineEditor::LineEditor(Completer completer, const std::vector<std::string>& history)
    : m_completer(std::move(completer)),
      m_history(history_init()),
      m_editor(el_init("zelkctl", stdin, stdout, stderr)) {
    if (!m_history || !m_editor) {
        throw std::runtime_error("the terminal's lines cannot be edited");
    }
    EditLine* editor = m_editor.get();
    HistEvent event;
    (void)::history(m_history.get(), &event, H_SETSIZE, kRemembered);
    (void)::history(m_history.get(), &event, H_SETUNIQUE, 1);
    for (const std::string& line : history) {
        Remember(line);
    }
    (void)el_set(editor, EL_CLIENTDATA, this);
    (void)el_set(editor, EL_PROMPT, &LineEditor::Prompt);
    (void)el_set(editor, EL_SIGNAL, 1);
    (void)el_set(editor, EL_EDITOR, "emacs");
    (void)el_set(editor, EL_HIST, ::history, m_history.get());
    // Wide texts are used as they are; of others it makes copies that it never frees.
    (void)el_wset(editor, EL_ADDFN, L"complete", L"completes a name", &LineEditor::Complete);
    (void)el_wset(editor, EL_ADDFN, L"cancel", L"cancels the line", &LineEditor::Cancel);
    (void)el_set(editor, EL_BIND, "^I", "complete", nullptr);
    (void)el_set(editor, EL_BIND, "^C", "cancel", nullptr);
    (void)el_set(editor, EL_BIND, "^R", "em-inc-search-prev", nullptr);
    // While a line is edited Ctrl-C is a key like any other, and no signal.
    (void)el_set(editor, EL_SETTY, "-d", "-isig", nullptr);
    (void)el_source(editor, nullptr);
}

LineSource::End LineEditor::Read(const std::string& prompt, std::string& line) {
    m_prompt = prompt;
    m_isCancelled = false;
    int size = 0;
    const char* text = el_gets(m_editor.get(), &size);
    if (m_isCancelled) {
        return End::kCancelled;
    }
    if (text == nullptr || size <= 0) {
        (void)std::fputs("\n", stdout);
        return End::kOver;
    }
    line.assign(text, static_cast<std::size_t>(size));
    while (line.ends_with('\n') || line.ends_with('\r')) {
        line.pop_back();
    }
    return End::kLine;
}

void LineEditor::Remember(const std::string& line) {
    HistEvent event;
    (void)::history(m_history.get(), &event, H_ENTER, line.c_str());
}

LineEditor& LineEditor::Of(EditLine* editor) {
    void* self = nullptr;
    (void)el_get(editor, EL_CLIENTDATA, &self);
    return *static_cast<LineEditor*>(self);
}

char* LineEditor::Prompt(EditLine* editor) {
    return Of(editor).m_prompt.data();
}

unsigned char LineEditor::Cancel(EditLine* editor, int) {
    Of(editor).m_isCancelled = true;
    (void)std::fputs("^C\n", stdout);
    return CC_NEWLINE;
}

unsigned char LineEditor::Complete(EditLine* editor, int) {
    try {
        return Of(editor).CompleteLine();
    } catch (const std::exception&) {
        return CC_ERROR;
    }
}

unsigned char LineEditor::CompleteLine() {
    const LineInfo* line = el_line(m_editor.get());
    const std::string name =
        NameAtEnd({line->buffer, static_cast<std::size_t>(line->cursor - line->buffer)});
    std::vector<std::string> candidates = m_completer(name);
    std::erase_if(candidates, [&name](const std::string& candidate) {
        return !candidate.starts_with(name) || Shown(candidate) != candidate;
    });
    if (candidates.empty()) {
        return CC_ERROR;
    }
    const std::string common = CommonBegin(candidates);
    if (common.size() > name.size()) {
        const bool isInserted = el_insertstr(m_editor.get(), common.c_str() + name.size()) == 0;
        return isInserted ? CC_REFRESH : CC_ERROR;
    }
    if (candidates.size() > 1) {
        ShowCandidates(candidates);
    }
    return CC_REDISPLAY;
}

void LineEditor::ShowCandidates(const std::vector<std::string>& candidates) const {
    constexpr std::size_t kMostShown = 200;
    constexpr std::size_t kGap = 2;
    std::size_t widest = 1;
    for (const std::string& candidate : candidates) {
        widest = std::max(widest, DisplayWidth(candidate) + kGap);
    }
    int columns = 0;
    if (el_get(m_editor.get(), EL_GETTC, "co", &columns) != 0 || columns <= 0) {
        columns = 80;
    }
    const std::size_t perLine =
        std::max<std::size_t>(1, static_cast<std::size_t>(columns) / widest);
    const std::size_t shown = std::min(candidates.size(), kMostShown);
    std::string text = "\n";
    for (std::size_t i = 0; i < shown; ++i) {
        const bool endsLine = (i + 1) % perLine == 0 || i + 1 == shown;
        text += candidates[i];
        text +=
            endsLine ? std::string("\n") : std::string(widest - DisplayWidth(candidates[i]), ' ');
    }
    if (candidates.size() > shown) {
        text += "... and " + std::to_string(candidates.size() - shown) + " more\n";
    }
    (void)std::fputs(text.c_str(), stdout);
}
