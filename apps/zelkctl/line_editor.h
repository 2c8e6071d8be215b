#pragma once

#include <histedit.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "apps/zelkctl/line_source.h"

// Lines that a person edits at the terminal of this process: with history, and with completion by
// the tab key. There is one of it in a process.
class LineEditor : public LineSource {
  public:
    // The names that begin with `text`, each whole. What it throws is a beep.
    using Completer = std::function<std::vector<std::string>(const std::string& text)>;

    LineEditor(Completer completer, const std::vector<std::string>& history);

    // Ctrl-C cancels the line, Ctrl-D on an empty one is the end.
    End Read(const std::string& prompt, std::string& line) override;

    // From now on it can be had again.
    void Remember(const std::string& line);

  private:
    static char* Prompt(EditLine* editor);
    static unsigned char Complete(EditLine* editor, int character);
    static unsigned char Cancel(EditLine* editor, int character);
    static LineEditor& Of(EditLine* editor);

    unsigned char CompleteLine();
    void ShowCandidates(const std::vector<std::string>& candidates) const;

    struct Closer {
        void operator()(EditLine* editor) const { el_end(editor); }
        void operator()(History* history) const { history_end(history); }
    };

    Completer m_completer;
    std::string m_prompt;
    bool m_isCancelled = false;
    std::unique_ptr<History, Closer> m_history;  // outlives the editor, which reads it
    std::unique_ptr<EditLine, Closer> m_editor;
};
