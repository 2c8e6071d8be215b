#include "zelka_core/system/runnable.h"

#include <wx/log.h>

#include <cstdint>
#include <exception>
#include <utility>

namespace ZelkaCore {

namespace {

// Bytes. Lua's limit of nested C calls fits in; what `ulimit -s` says may not do.
constexpr unsigned int kStackSize = 8'388'608;

}  // namespace

CRunnable::CRunnable(bool detached, int stackSize, bool suspended)
    : wxThread(wxTHREAD_JOINABLE),
      m_stackSize(stackSize > 0 ? static_cast<unsigned int>(stackSize) : kStackSize) {
    wxASSERT(!detached && !suspended);
    (void)detached;
    (void)suspended;
}

CRunnable::~CRunnable() {
    CRunnable::requestExit();
    (void)join();
}

CDom* CRunnable::SetDom(CDom* dom) {
    return std::exchange(m_dom, dom);
}

void CRunnable::start(unsigned int priority, bool create, unsigned int stackSize) {
    if (create && Create(stackSize != 0 ? stackSize : m_stackSize) != wxTHREAD_NO_ERROR) {
        wxLogError("Thread %s cannot be created", GetThreadName());
        return;
    }
    SetPriority(priority);
    m_started = Run() == wxTHREAD_NO_ERROR;
    if (!m_started) {
        wxLogError("Thread %s cannot be started", GetThreadName());
    }
}

long long CRunnable::join() {
    if (m_started && !m_joined) {
        m_joined = true;
        m_exitCode = Wait(wxTHREAD_WAIT_BLOCK);
    }
    return reinterpret_cast<std::intptr_t>(m_exitCode);
}

void CRunnable::requestExit() {
    const MutexLock lock(m_mutex);
    m_exitRequested = true;
    m_requested.NotifyAll();
}

void CRunnable::interrupt() {
    const MutexLock lock(m_mutex);
    m_interrupted = true;
    m_requested.NotifyAll();
}

void CRunnable::Awaken() {
    const MutexLock lock(m_mutex);
    m_awakened = true;
    m_requested.NotifyAll();
}

bool CRunnable::TestDestroy() {
    const MutexLock lock(m_mutex);
    return m_exitRequested;
}

bool CRunnable::TestDestroy(unsigned int timeoutMs, bool* interrupted) {
    const auto deadline = CondVar::Clock::now() + std::chrono::milliseconds(timeoutMs);
    const MutexLock lock(m_mutex);
    while (!m_exitRequested && !m_interrupted && !m_awakened) {
        if (!m_requested.WaitUntil(m_mutex, deadline)) {
            break;
        }
    }
    m_awakened = false;
    const bool wasInterrupted = std::exchange(m_interrupted, false);
    if (interrupted != nullptr) {
        *interrupted = wasInterrupted;
    }
    return m_exitRequested;
}

wxThreadError CRunnable::Delete(void** rc) {
    requestExit();
    (void)join();
    if (rc != nullptr) {
        *rc = m_exitCode;
    }
    return wxTHREAD_NO_ERROR;
}

void* CRunnable::Entry() {
    const wxString name(GetThreadName());
    (void)SetName(name);
    try {
        ThreadMain();
    } catch (const std::exception& error) {
        wxLogError("Thread %s ended by an exception: %s", name, error.what());
    } catch (...) {
        wxLogError("Thread %s ended by an exception of an unknown type", name);
    }
    return nullptr;
}

void CRunnable::OnExit() {
}

}  // namespace ZelkaCore
