#pragma once

#include <chrono>
#include <functional>
#include <lua.hpp>
#include <memory>
#include <optional>
#include <vector>

#include "apps/zelka/control/control_call.h"
#include "zelka_core/mutex.h"

// Asks the Lua state something, and waits for the answer.
class LuaQuery : public OngoingCall {
  public:
    // In work on the state (lua_state_lock.h), on whatever thread: the parameters of the reply. May
    // throw ControlError and other exceptions, but raise no Lua error.
    using Ask = std::function<ZelkaCore::Json(lua_State*)>;
    // The reply if no answer comes in time.
    using Late = std::function<ZelkaCore::VarlinkReply()>;

    LuaQuery(const CallContext& context, Ask ask, std::chrono::milliseconds patience, Late late);
    ~LuaQuery() override;

    void Advance(std::vector<ZelkaCore::VarlinkReply>& replies) override;

  private:
    struct Shared {
        ZelkaCore::Mutex mutex;
        bool isGivenUp ZELKA_GUARDED_BY(mutex) = false;
        std::optional<ZelkaCore::VarlinkReply> reply ZELKA_GUARDED_BY(mutex);
    };

    // Constant after construction.
    const Late m_late;
    const std::shared_ptr<Shared> m_shared;
};
