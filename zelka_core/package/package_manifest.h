#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace ZelkaCore {

// The entry of a package that tells what it is; without one a package is files and nothing else.
inline constexpr const char* kManifestName = "zelka_package.ini";

// What has to be there for a package, `NAME` or `NAME>=VERSION`.
struct PackageRequirement {
    enum class Relation { kAny, kLess, kAtMost, kExactly, kAtLeast, kMore };

    std::string name;
    Relation relation = Relation::kAny;
    std::string version;  // empty with kAny

    // Whether a version of what it names will do.
    [[nodiscard]] bool IsMetBy(std::string_view offered) const;
    // As it is written in a manifest.
    [[nodiscard]] std::string Text() const;
};

struct PackageManifest {
    std::string name;
    std::string version;  // IsVersion
    std::vector<PackageRequirement> requirements;
};

// A letter or digit of ASCII, then letters, digits and . _ + -, 64 at most.
bool IsPackageName(std::string_view text);

// Reads a manifest, an ini file in UTF-8:
//
//     [package]
//     name = sample
//     version = 1.2-1
//     requires = zelk_agent>=1.0, other
//
// Lines that begin with ';' or '#' are comments. Relations are <<, <=, =, >= and >>. Of the group
// `package` every key is known, or begins with "x-" and is anybody's; other groups are anybody's,
// too. False leaves `manifest` alone, with `fault` "line N: why", or why where no line is to blame.
bool ParseManifest(std::string_view text, PackageManifest& manifest, std::string& fault);

// Reads what a key `requires` holds. False leaves `requirements` alone and tells why.
bool ParseRequirements(std::string_view text, std::vector<PackageRequirement>& requirements,
                       std::string& fault);

// The requirements as one text, such as `requires` holds.
std::string RequirementsText(const std::vector<PackageRequirement>& requirements);

}  // namespace ZelkaCore
