#include "apps/zelkctl/reply.h"

#include "apps/zelkctl/quantity.h"
#include "zelka_core/log/log_text.h"

using ZelkaCore::Json;

namespace {

// The member, or null.
const Json& Member(const Json& object, const char* member) {
    static const Json none;
    if (!object.is_object()) {
        return none;
    }
    const auto found = object.find(member);
    return found == object.end() ? none : *found;
}

template <class Words>
std::string InWords(const Json& object, const char* member, Words words) {
    const auto number = MemberNumber(object, member);
    return number ? words(*number) : kNotTold;
}

}  // namespace

std::string Shown(std::string_view text) {
    std::string shown;
    for (const char character : ShownLines(text)) {
        if (character == '\n') {
            shown += "\\n";
        } else if (character == '\t') {
            shown += "\\t";
        } else {
            shown += character;
        }
    }
    return shown;
}

std::string ShownLines(std::string_view text) {
    std::string shown;
    for (;;) {
        const auto end = text.find('\n');
        shown += ZelkaCore::LogText(text.substr(0, end));
        if (end == std::string_view::npos) {
            return shown;
        }
        shown += '\n';
        text.remove_prefix(end + 1);
    }
}

std::string ToText(const Json& value) {
    return value.dump(-1, ' ', true, Json::error_handler_t::replace);
}

std::string RawText(const Json& value) {
    return value.is_string() ? value.get<std::string>() : ToText(value);
}

std::string MemberText(const Json& object, const char* member) {
    const Json& value = Member(object, member);
    return value.is_null() ? kNotTold : Shown(RawText(value));
}

std::string RawMember(const Json& object, const char* member) {
    const Json& value = Member(object, member);
    return value.is_null() ? std::string() : RawText(value);
}

std::optional<std::int64_t> MemberNumber(const Json& object, const char* member) {
    const Json& value = Member(object, member);
    if (!value.is_number_integer()) {
        return std::nullopt;
    }
    return value.get<std::int64_t>();
}

bool MemberFlag(const Json& object, const char* member) {
    const Json& value = Member(object, member);
    return value.is_boolean() && value.get<bool>();
}

const Json& MemberPart(const Json& object, const char* member) {
    static const Json none = Json::array();
    const Json& value = Member(object, member);
    return value.is_structured() ? value : none;
}

std::string MemberDuration(const Json& object, const char* member) {
    return InWords(object, member, DurationText);
}

std::string MemberTime(const Json& object, const char* member) {
    return InWords(object, member, TimeText);
}

std::string MemberSize(const Json& object, const char* member) {
    return InWords(object, member, SizeText);
}
