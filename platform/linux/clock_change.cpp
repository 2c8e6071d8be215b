#include "platform/clock_change.h"

#include <sys/timerfd.h>
#include <unistd.h>
#include <wx/evtloop.h>
#include <wx/evtloopsrc.h>

#include <cerrno>
#include <cstdint>
#include <ctime>
#include <limits>
#include <utility>

#include "platform/error.h"
#include "platform/scoped_fd.h"

namespace {

// A timer that is never due. All it is for: the system cancels it when the clock is set.
class TimerWatch : public ClockChangeWatch, private wxEventLoopSourceHandler {
  public:
    explicit TimerWatch(std::function<void()> onChange) : m_onChange(std::move(onChange)) {}

    std::error_code Watch() {
        m_timer.Reset(timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK | TFD_CLOEXEC));
        if (!m_timer.IsOpen() || !Arm()) {
            return LastSystemError();
        }
        m_source.reset(wxEventLoopBase::AddSourceForFD(m_timer.Get(), this, wxEVENT_SOURCE_INPUT));
        return m_source ? std::error_code() : std::make_error_code(std::errc::not_supported);
    }

  private:
    // A timer that is cancelled in the moment of arming is armed all the same.
    [[nodiscard]] bool Arm() const {
        itimerspec due{};
        due.it_value.tv_sec = std::numeric_limits<time_t>::max();
        return timerfd_settime(m_timer.Get(), TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &due,
                               nullptr) == 0 ||
               errno == ECANCELED;
    }

    void OnReadWaiting() override {
        std::uint64_t expirations = 0;
        if (read(m_timer.Get(), &expirations, sizeof(expirations)) < 0 && errno == ECANCELED) {
            (void)Arm();  // what succeeded once; a setting that falls in between is this one
            m_onChange();
        }
    }
    void OnWriteWaiting() override {}
    void OnExceptionWaiting() override {}

    const std::function<void()> m_onChange;
    ScopedFd m_timer;
    std::unique_ptr<wxEventLoopSource> m_source;  // goes before the timer that it watches
};

}  // namespace

std::error_code ClockChangeWatch::Begin(std::function<void()> onChange,
                                        std::unique_ptr<ClockChangeWatch>& watch) {
    auto begun = std::make_unique<TimerWatch>(std::move(onChange));
    const auto error = begun->Watch();
    if (!error) {
        watch = std::move(begun);
    }
    return error;
}
