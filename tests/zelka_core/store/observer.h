#pragma once

#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "zelka_core/store/wait_engine.h"

namespace ZelkaCore {

inline constexpr std::chrono::milliseconds kAtOnce{0};
inline constexpr std::chrono::minutes kGenerous{1};

// One who waits in the ordinary way.
class Observer : public CWait {
  public:
    Observer(CWaitEngine& engine, CConditions::Looks& looks)
        : CWait(engine, looks), m_engine(engine) {}

    void Start(std::vector<Awaited> items, std::chrono::milliseconds timeout) {
        Begin(std::move(items), CWaitEngine::Clock::now() + timeout);
    }

    WaitResult Finish() {
        for (;;) {
            if (const auto result = Look()) {
                return *result;
            }
            m_engine.Sleep();
        }
    }

    WaitResult WaitFor(std::vector<Awaited> items, std::chrono::milliseconds timeout) {
        Start(std::move(items), timeout);
        return Finish();
    }

  private:
    void OnWoken() override {}

    CWaitEngine& m_engine;
};

// An engine and two of those who wait.
class WaitTest : public testing::Test {
  protected:
    using Kind = WaitResult::Kind;

    CConditions conditions;
    CWaitEngine engine{conditions};
    CConditions::Looks looks{0};
    CConditions::Looks otherLooks{0};
    Observer observer{engine, looks};
    Observer other{engine, otherLooks};
};

}  // namespace ZelkaCore
