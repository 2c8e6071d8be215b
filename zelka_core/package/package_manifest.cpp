#include "zelka_core/package/package_manifest.h"

#include <algorithm>
#include <array>
#include <compare>
#include <cstddef>
#include <map>
#include <utility>

#include "zelka_core/archive/shown_name.h"
#include "zelka_core/package/version_order.h"
#include "zelka_core/text.h"

namespace ZelkaCore {

namespace {

constexpr std::size_t kLongestName = 64;
constexpr const char* kGroup = "package";

using Relation = PackageRequirement::Relation;

// Longer ones first.
constexpr std::array<std::pair<std::string_view, Relation>, 5> kRelations{{
    {"<<", Relation::kLess},
    {"<=", Relation::kAtMost},
    {">=", Relation::kAtLeast},
    {">>", Relation::kMore},
    {"=", Relation::kExactly},
}};

std::string_view Trim(std::string_view text) {
    constexpr const char* kBlanks = " \t\r";
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

// Takes what stands before the separator, and the separator, away from `rest`.
std::string_view TakeUntil(char separator, std::string_view& rest) {
    const std::string_view part = rest.substr(0, rest.find(separator));
    rest.remove_prefix(std::min(part.size() + 1, rest.size()));
    return part;
}

std::string Quoted(std::string_view text) {
    return "'" + ToUtf8(ShownName(FromUtf8(std::string(text)))) + "'";
}

std::string TakeRequirement(std::string_view text, PackageRequirement& requirement) {
    const auto end = std::min(text.find_first_of("<>="), text.size());
    const std::string_view name = Trim(text.substr(0, end));
    std::string_view rest = text.substr(end);
    if (!IsPackageName(name)) {
        return Quoted(name) + " is no name of a package";
    }
    requirement.name = name;
    if (rest.empty()) {
        return {};
    }
    const auto* const relation =
        std::find_if(kRelations.begin(), kRelations.end(),
                     [&](const auto& known) { return rest.starts_with(known.first); });
    if (relation == kRelations.end()) {
        return Quoted(rest) + " begins with none of << <= = >= >>";
    }
    rest = Trim(rest.substr(relation->first.size()));
    if (!IsVersion(rest)) {
        return Quoted(rest) + " is no version";
    }
    requirement.relation = relation->second;
    requirement.version = rest;
    return {};
}

// The keys of one manifest while its lines are read.
class Reader {
  public:
    // Why the line makes no sense; empty if it does.
    std::string Take(std::string_view line) {
        line = Trim(line);
        if (line.empty() || line.front() == ';' || line.front() == '#') {
            return {};
        }
        if (line.front() == '[') {
            return TakeGroup(line);
        }
        const auto equals = line.find('=');
        if (equals == std::string_view::npos) {
            return "neither a [group] nor key=value";
        }
        return m_isInside ? TakeKey(Trim(line.substr(0, equals)), Trim(line.substr(equals + 1)))
                          : "";
    }

    std::string Finish(PackageManifest& manifest) {
        for (const char* key : {"name", "version"}) {
            if (m_known.find(key) == m_known.end()) {
                return std::string("the group [package] has no ") + key;
            }
        }
        manifest = std::move(m_manifest);
        return {};
    }

  private:
    std::string TakeGroup(std::string_view line) {
        if (line.back() != ']') {
            return "neither a [group] nor key=value";
        }
        m_isInside = Trim(line.substr(1, line.size() - 2)) == kGroup;
        return m_isInside && std::exchange(m_wasInside, true) ? "the group [package] is there twice"
                                                              : "";
    }

    std::string TakeKey(std::string_view key, std::string_view value) {
        if (key.starts_with("x-")) {
            return {};
        }
        if (!m_known.emplace(key, value).second) {
            return std::string(key) + " is there twice";
        }
        if (key == "name") {
            m_manifest.name = value;
            return IsPackageName(value) ? "" : Quoted(value) + " is no name of a package";
        }
        if (key == "version") {
            m_manifest.version = value;
            return IsVersion(value) ? "" : Quoted(value) + " is no version";
        }
        std::string fault;
        if (key == "requires") {
            (void)ParseRequirements(value, m_manifest.requirements, fault);
            return fault;
        }
        return "the key " + Quoted(key) + " is unknown";
    }

    PackageManifest m_manifest;
    std::map<std::string, std::string, std::less<>> m_known;
    bool m_isInside = false;
    bool m_wasInside = false;
};

}  // namespace

bool PackageRequirement::IsMetBy(std::string_view offered) const {
    if (relation == Relation::kAny) {
        return true;
    }
    const auto order = CompareVersions(offered, version);
    switch (relation) {
        case Relation::kLess:
            return std::is_lt(order);
        case Relation::kAtMost:
            return std::is_lteq(order);
        case Relation::kExactly:
            return std::is_eq(order);
        case Relation::kAtLeast:
            return std::is_gteq(order);
        default:
            return std::is_gt(order);
    }
}

std::string PackageRequirement::Text() const {
    const auto* const sign =
        std::find_if(kRelations.begin(), kRelations.end(),
                     [&](const auto& known) { return known.second == relation; });
    return sign == kRelations.end() ? name : name + std::string(sign->first) + version;
}

bool IsPackageName(std::string_view text) {
    const auto isPlain = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    };
    return !text.empty() && text.size() <= kLongestName && isPlain(text.front()) &&
           std::all_of(text.begin(), text.end(), [&](char c) {
               return isPlain(c) || c == '.' || c == '_' || c == '+' || c == '-';
           });
}

bool ParseRequirements(std::string_view text, std::vector<PackageRequirement>& requirements,
                       std::string& fault) {
    std::vector<PackageRequirement> found;
    while (!text.empty()) {
        const std::string_view part = Trim(TakeUntil(',', text));
        PackageRequirement& requirement = found.emplace_back();
        if (std::string reason = TakeRequirement(part, requirement); !reason.empty()) {
            fault = "requires: " + reason;
            return false;
        }
    }
    requirements = std::move(found);
    return true;
}

std::string RequirementsText(const std::vector<PackageRequirement>& requirements) {
    std::string text;
    for (const PackageRequirement& requirement : requirements) {
        text += (text.empty() ? "" : ", ") + requirement.Text();
    }
    return text;
}

bool ParseManifest(std::string_view text, PackageManifest& manifest, std::string& fault) {
    if (!IsValidUtf8(text)) {
        fault = "is not UTF-8";
        return false;
    }
    Reader reader;
    for (std::size_t line = 1; !text.empty(); ++line) {
        if (const std::string reason = reader.Take(TakeUntil('\n', text)); !reason.empty()) {
            fault = "line " + std::to_string(line) + ": " + reason;
            return false;
        }
    }
    PackageManifest found;
    if (fault = reader.Finish(found); !fault.empty()) {
        return false;
    }
    manifest = std::move(found);
    return true;
}

}  // namespace ZelkaCore
