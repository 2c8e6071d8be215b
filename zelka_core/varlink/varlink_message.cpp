#include "zelka_core/varlink/varlink_message.h"

#include <algorithm>

namespace ZelkaCore {

namespace {

constexpr int kDeepest = 64;

bool ParseObject(std::string_view message, Json& object, std::string& fault) {
    bool isTooDeep = false;
    const auto watchDepth = [&](int depth, Json::parse_event_t, const Json&) {
        isTooDeep = isTooDeep || depth > kDeepest;
        return !isTooDeep;
    };
    try {
        Json parsed = Json::parse(message.begin(), message.end(), watchDepth);
        if (isTooDeep) {
            fault = "it is nested too deep";
        } else if (!parsed.is_object()) {
            fault = "it is no JSON object";
        } else {
            object = std::move(parsed);
            return true;
        }
    } catch (const Json::parse_error& error) {
        fault = "it is no JSON from byte " + std::to_string(error.byte) + " on";
    }
    return false;
}

// A member of that type, if there is one; nothing is changed if there is none.
template <class Value>
bool TakeMember(const Json& object, const char* name, Value& value, std::string& fault) {
    const auto found = object.find(name);
    if (found == object.end() || found->is_null()) {
        return true;
    }
    const bool fits = std::is_same_v<Value, bool>          ? found->is_boolean()
                      : std::is_same_v<Value, std::string> ? found->is_string()
                                                           : found->is_object();
    if (!fits) {
        fault = std::string("its member '") + name + "' is of the wrong type";
        return false;
    }
    found->get_to(value);
    return true;
}

std::string Serialize(const Json& object) {
    std::string bytes = object.dump(-1, ' ', false, Json::error_handler_t::replace);
    bytes += '\0';
    return bytes;
}

}  // namespace

std::optional<std::string> VarlinkReader::Next() {
    const auto end = m_bytes.find('\0', m_looked);
    if (end == std::string::npos || end - m_begin > m_limit) {
        m_bytes.erase(0, m_begin);
        m_looked = m_bytes.size();
        m_begin = 0;
        return std::nullopt;
    }
    std::string message = m_bytes.substr(m_begin, end - m_begin);
    m_begin = m_looked = end + 1;
    return message;
}

bool ReadVarlinkCall(std::string_view message, VarlinkCall& call, std::string& fault) {
    Json object;
    VarlinkCall taken;
    if (!ParseObject(message, object, fault) ||
        !TakeMember(object, "method", taken.method, fault) ||
        !TakeMember(object, "parameters", taken.parameters, fault) ||
        !TakeMember(object, "more", taken.wantsMore, fault) ||
        !TakeMember(object, "oneway", taken.wantsNoReply, fault)) {
        return false;
    }
    if (taken.method.empty()) {
        fault = "it names no method";
        return false;
    }
    call = std::move(taken);
    return true;
}

bool ReadVarlinkReply(std::string_view message, VarlinkReply& reply, std::string& fault) {
    Json object;
    VarlinkReply taken;
    if (!ParseObject(message, object, fault) ||
        !TakeMember(object, "parameters", taken.parameters, fault) ||
        !TakeMember(object, "continues", taken.continues, fault) ||
        !TakeMember(object, "error", taken.error, fault)) {
        return false;
    }
    reply = std::move(taken);
    return true;
}

std::string WriteVarlink(const VarlinkCall& call) {
    Json object{{"method", call.method}, {"parameters", call.parameters}};
    if (call.wantsMore) {
        object["more"] = true;
    }
    if (call.wantsNoReply) {
        object["oneway"] = true;
    }
    return Serialize(object);
}

std::string WriteVarlink(const VarlinkReply& reply) {
    Json object = Json::object();
    if (!reply.error.empty()) {
        object["error"] = reply.error;
    }
    object["parameters"] = reply.parameters;
    if (reply.continues) {
        object["continues"] = true;
    }
    return Serialize(object);
}

}  // namespace ZelkaCore
