#pragma once

#include <wx/thread.h>

#include "zelka_core/mutex.h"

namespace ZelkaCore {

class CDom;

// The base of a thread class. The derived class gives the thread's name and its body; the owner
// starts it once, may ask it to end, joins it and destroys it. start, join and the destructor are
// for the owner's thread; the requests may come from any thread.
class CRunnable : public wxThread {
  public:
    // The derived class has to have joined the thread by then.
    ~CRunnable() override;
    CRunnable(const CRunnable&) = delete;
    CRunnable& operator=(const CRunnable&) = delete;

    // Gives the thread object its store and returns the one it had. Before start.
    CDom* SetDom(CDom* dom);
    [[nodiscard]] CDom* GetDom() const { return m_dom; }

    // Starts the thread and returns while it runs. `priority` is from 0 to 100, 50 being normal.
    // `create` is false if wxThread::Create was called already. `stackSize` is in bytes, 0 for the
    // one given at construction. A failure is logged and shows in IsStarted.
    void start(unsigned int priority, bool create, unsigned int stackSize);
    [[nodiscard]] bool IsStarted() const { return m_started; }

    // Waits for the end of the thread, at once if it has ended or never started. Returns its
    // wxThread exit code, 0 for a thread whose body returned.
    long long join();

    // Asks the thread to end and does not wait: TestDestroy answers true from now on.
    virtual void requestExit();

    // Makes the TestDestroy that waits, or the next one, return early: as interrupted, or just so.
    virtual void interrupt();
    virtual void Awaken();

    // Whether the thread is asked to end. The second form, for the thread itself, waits for that
    // for `timeoutMs` milliseconds at most; `*interrupted`, if given, tells whether interrupt was
    // called.
    bool TestDestroy() override;
    virtual bool TestDestroy(unsigned int timeoutMs, bool* interrupted);

    // Asks the thread to end and joins it.
    virtual wxThreadError Delete(void** rc);

  protected:
    // `detached` threads are not offered: the object belongs to its owner, so it must be false.
    // `stackSize` is in bytes, -1 for 8 MiB. `suspended` must be false: a thread runs from
    // its start.
    CRunnable(bool detached, int stackSize, bool suspended);

    // Runs ThreadMain once. An exception that leaves it is logged.
    void* Entry() override;
    void OnExit() override;

    virtual const char* GetThreadName() = 0;
    virtual void ThreadMain() = 0;

  private:
    // Constant after construction.
    const unsigned int m_stackSize;

    CDom* m_dom = nullptr;          // constant after start
    bool m_started = false;         // touched by the owner's thread
    bool m_joined = false;          // touched by the owner's thread
    ExitCode m_exitCode = nullptr;  // touched by the owner's thread

    Mutex m_mutex;
    CondVar m_requested;
    bool m_exitRequested ZELKA_GUARDED_BY(m_mutex) = false;
    bool m_interrupted ZELKA_GUARDED_BY(m_mutex) = false;
    bool m_awakened ZELKA_GUARDED_BY(m_mutex) = false;
};

}  // namespace ZelkaCore
