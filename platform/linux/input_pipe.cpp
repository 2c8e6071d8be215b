#include "platform/linux/input_pipe.h"

#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/linux/program_pipe.h"

std::error_code InputPipe::Open(std::string content) {
    m_content = std::move(content);
    return OpenProgramPipe(PipeEnd::kReading, m_reading, m_writing);
}

void InputPipe::Give() {
    if (!m_writing.IsOpen()) {
        return;
    }
    const ssize_t count =
        write(m_writing.Get(), m_content.data() + m_written, m_content.size() - m_written);
    if (count >= 0) {
        m_written += static_cast<std::size_t>(count);
    }
    if (m_written == m_content.size() || (count < 0 && errno != EAGAIN && errno != EINTR)) {
        Close();
    }
}

void InputPipe::Close() {
    m_writing.Reset();
    m_content = {};
    m_written = 0;
}
