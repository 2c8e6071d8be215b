#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "zelka_core/varlink/json.h"

// Messages of the Varlink protocol: JSON objects, each ended by a null byte. Any thread.

namespace ZelkaCore {

struct VarlinkCall {
    std::string method;  // with its interface: "org.varlink.service.GetInfo"
    Json parameters = Json::object();
    bool wantsMore = false;  // more replies than one are welcome
    bool wantsNoReply = false;
};

struct VarlinkReply {
    Json parameters = Json::object();
    bool continues = false;  // another one follows
    std::string error = {};  // the error's name with its interface; empty: it is none
};

// Takes messages out of the bytes of a connection.
class VarlinkReader {
  public:
    // A call is not larger, in bytes without its end.
    static constexpr std::size_t kLimit = std::size_t{1} << 20;

    VarlinkReader() = default;
    // Takes messages of another size at most.
    explicit VarlinkReader(std::size_t limit) : m_limit(limit) {}

    void Add(std::string_view bytes) { m_bytes += bytes; }

    // The next whole message; none if there is none yet.
    std::optional<std::string> Next();

    // After Next has given none: whether what has come is too long for a message.
    [[nodiscard]] bool IsTooLong() const { return m_bytes.size() - m_begin > m_limit; }

  private:
    std::size_t m_limit = kLimit;
    std::string m_bytes;
    std::size_t m_begin = 0;   // of the message that Next takes
    std::size_t m_looked = 0;  // up to there is no end of it
};

// A message as a call, or as a reply. False, with `fault` saying what is wrong with it (and nothing
// else changed), if it is none; also for one that is nested deeper than 64 levels.
bool ReadVarlinkCall(std::string_view message, VarlinkCall& call, std::string& fault);
bool ReadVarlinkReply(std::string_view message, VarlinkReply& reply, std::string& fault);

// The bytes of a message with its end. Text that is not UTF-8 is shown with replacement characters.
std::string WriteVarlink(const VarlinkCall& call);
std::string WriteVarlink(const VarlinkReply& reply);

}  // namespace ZelkaCore
