#pragma once

#include <string>

namespace ZelkaCore {

// Whether a value of that name is not to be shown: the name has `password`, `secret` or `token` in
// it, in upper or lower case.
bool IsSecretName(const std::string& name);

// What is shown in the place of such a value.
inline constexpr const char* kMasked = "***";

}  // namespace ZelkaCore
