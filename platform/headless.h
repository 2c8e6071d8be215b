#pragma once

#include <wx/app.h>

#include <cstdint>

// The framework's application, window and frame classes for a process that has no display: the part
// of their behaviour that a program without windows relies on, under their own names. All of it
// belongs to the main thread.

class wxWindow;

using WXUINT = unsigned;
using WXWPARAM = std::uintptr_t;
using WXLPARAM = std::intptr_t;
using WXLRESULT = std::intptr_t;

// The application. Its clean-up destroys the top-level windows that are left.
class wxAppBase : public wxAppConsole {
  public:
    void SetTopWindow(wxWindow* window) { m_topWindow = window; }
    [[nodiscard]] wxWindow* GetTopWindow() const { return m_topWindow; }

    // Whether the main loop ends with 0 when the last top-level window is destroyed. On at first.
    void SetExitOnFrameDelete(bool on) { m_exitOnFrameDelete = on; }
    [[nodiscard]] bool GetExitOnFrameDelete() const { return m_exitOnFrameDelete; }

    void CleanUp() override;

  private:
    wxWindow* m_topWindow = nullptr;
    bool m_exitOnFrameDelete = true;
};

// A window that is never made: it can only be the parent of another one.
class wxWindow : public wxEvtHandler {};

// A top-level window: receives messages and events, shows nothing. The application owns it from its
// construction and destroys it in its clean-up, unless it is deleted before.
class wxFrame : public wxWindow {
  public:
    wxFrame(wxWindow* parent, int id, const wxString& title);
    ~wxFrame() override;
    wxFrame(const wxFrame&) = delete;
    wxFrame& operator=(const wxFrame&) = delete;

    [[nodiscard]] wxWindow* GetParent() const { return m_parent; }
    [[nodiscard]] int GetId() const { return m_id; }
    [[nodiscard]] const wxString& GetTitle() const { return m_title; }

    // There is nothing to show: answers false, "the state did not change", for Show(false).
    virtual bool Show(bool show);

    // Takes a message of the system. The base class handles none and answers 0.
    virtual WXLRESULT MSWWindowProc(WXUINT message, WXWPARAM wParam, WXLPARAM lParam);

  private:
    // Constant after construction.
    wxWindow* m_parent;
    int m_id;
    wxString m_title;
};
