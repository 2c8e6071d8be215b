#include "zelka_core/system/runnable.h"

#include <gmock/gmock.h>

#include <stdexcept>

#include "tests/support/captured_log.h"

namespace ZelkaCore {
namespace {

class WaitingThread : public CRunnable {
  public:
    WaitingThread() : CRunnable(false, -1, false) {}

  protected:
    const char* GetThreadName() override { return "WaitingThread"; }
    void ThreadMain() override {
        throw std::runtime_error(TestDestroy(60'000, nullptr) ? "told to end" : "in vain");
    }
};

TEST(Runnable, IsToldToEndWhileItWaitsAndAnExceptionEndsTheThreadAndNothingElse) {
    CapturedLog log;
    WaitingThread thread;
    thread.start(50, true, 0);
    thread.requestExit();
    EXPECT_EQ(thread.join(), 0);
    wxLog::FlushActive();
    EXPECT_THAT(log.Lines(), testing::ElementsAre(testing::HasSubstr(
                                 "WaitingThread ended by an exception: told to end")));
}

}  // namespace
}  // namespace ZelkaCore
