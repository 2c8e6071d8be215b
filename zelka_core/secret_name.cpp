#include "zelka_core/secret_name.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace ZelkaCore {

bool IsSecretName(const std::string& name) {
    std::string lower = name;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    constexpr std::array kSecrets{"password", "secret", "token"};
    return std::any_of(kSecrets.begin(), kSecrets.end(),
                       [&](const char* word) { return lower.find(word) != std::string::npos; });
}

}  // namespace ZelkaCore
