#include "apps/zelka/script/script_output.h"

#include <cstdio>

#include "zelka_core/text.h"

StandardOutput::StandardOutput() : m_file(stdout), m_stream(m_file) {
}

StandardOutput::~StandardOutput() {
    m_file.Detach();
}

void PrintErrorInfo(const wxString& info) {
    (void)std::fputs(ZelkaCore::ToUtf8(info).c_str(), stderr);
    (void)std::fputc('\n', stderr);
}
