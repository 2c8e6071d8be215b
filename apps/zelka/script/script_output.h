#pragma once

#include <wx/ffile.h>
#include <wx/wfstream.h>

// The process's standard output as a stream for what a script prints. The file stays open when the
// object goes.
class StandardOutput {
  public:
    StandardOutput();
    ~StandardOutput();
    StandardOutput(const StandardOutput&) = delete;
    StandardOutput& operator=(const StandardOutput&) = delete;

    wxFFileOutputStream& Stream() { return m_stream; }

  private:
    wxFFile m_file;
    wxFFileOutputStream m_stream;
};

// Writes why a script failed, and a line end, to standard error.
void PrintErrorInfo(const wxString& info);
