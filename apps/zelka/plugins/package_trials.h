#pragma once

#include <atomic>
#include <chrono>

namespace ZelkaCore {
class CDom;
}

// What becomes of packages on trial while the agent runs with their files: those that it has run
// with for long enough pass, and an end in order is no failure of any. What fails is in the log.
class PackageTrials {
  public:
    // Whether there are trials in this run; from any thread, before the other two.
    void Begin(bool areAny) { m_areUnderway = areAny; }

    // To be called again and again, by one thread, while the application of a service runs, which
    // it has done for so long.
    void Look(ZelkaCore::CDom& dom, std::chrono::milliseconds uptime);

    // The run has ended in order. Any thread.
    void Forgive(ZelkaCore::CDom& dom);

  private:
    std::atomic<bool> m_areUnderway = false;
};
