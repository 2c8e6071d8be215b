#include "zelka_core/system/runnable.h"

#include <gmock/gmock.h>

#include <functional>
#include <stdexcept>

#include "tests/support/captured_log.h"

namespace ZelkaCore {
namespace {

class TestThread : public CRunnable {
  public:
    explicit TestThread(std::function<void(TestThread&)> body)
        : CRunnable(false, -1, false), m_body(std::move(body)) {}
    ~TestThread() override { (void)join(); }

  protected:
    const char* GetThreadName() override { return "TestThread"; }
    void ThreadMain() override { m_body(*this); }

  private:
    std::function<void(TestThread&)> m_body;
};

constexpr unsigned int kGenerous = 60'000;

TEST(Runnable, IsToldToEndWhileItWaitsAndRequestsAreHarmlessBeforeAndAfter) {
    TestThread never([](TestThread&) {});
    never.requestExit();
    EXPECT_EQ(never.join(), 0);

    bool asked = false;
    TestThread thread([&](TestThread& self) { asked = self.TestDestroy(kGenerous, nullptr); });
    thread.start(50, true, 0);
    for (int round = 0; round < 2; ++round) {
        thread.requestExit();
        EXPECT_EQ(thread.join(), 0);
    }
    EXPECT_TRUE(asked);
}

TEST(Runnable, AnInterruptionEndsAWaitAndIsToldApartFromAWakeUp) {
    bool interrupted = false;
    bool interruptedLater = true;
    TestThread thread([&](TestThread& self) {
        EXPECT_FALSE(self.TestDestroy(kGenerous, &interrupted));
        self.Awaken();
        EXPECT_FALSE(self.TestDestroy(kGenerous, &interruptedLater));
    });
    thread.interrupt();
    thread.start(50, true, 0);
    (void)thread.join();
    EXPECT_TRUE(interrupted);
    EXPECT_FALSE(interruptedLater);
}

TEST(Runnable, AnExceptionEndsTheThreadAndNothingElse) {
    CapturedLog log;
    TestThread thread([](TestThread&) { throw std::runtime_error("from the body"); });
    thread.start(50, true, 0);
    EXPECT_EQ(thread.join(), 0);
    wxLog::FlushActive();
    EXPECT_THAT(log.Text(), testing::HasSubstr("TestThread ended by an exception: from the body"));
}

}  // namespace
}  // namespace ZelkaCore
