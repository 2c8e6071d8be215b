#include "apps/zelkctl/secrets.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace {

constexpr std::array<std::string_view, 3> kWords{"password", "secret", "token"};

// Where the value of the first secret of the line begins; npos if there is none.
std::size_t BeginOfSecret(std::string_view line) {
    std::string lower(line);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char character) {
        return static_cast<char>(std::tolower(character));
    });
    std::size_t first = std::string::npos;
    for (const std::string_view word : kWords) {
        first = std::min(first, lower.find(word));
    }
    const std::size_t equals = first == std::string::npos ? first : line.find('=', first);
    return equals == std::string::npos ? equals : equals + 1;
}

}  // namespace

std::string WithoutSecrets(std::string_view text) {
    std::string masked;
    while (!text.empty()) {
        const std::size_t size = std::min(text.find_first_of("\r\n"), text.size());
        const std::string_view line = text.substr(0, size);
        const std::size_t begin = BeginOfSecret(line);
        masked += line.substr(0, begin);
        if (begin != std::string::npos) {
            masked += "***";
        }
        masked += text.substr(size, 1);
        text.remove_prefix(std::min(size + 1, text.size()));
    }
    return masked;
}
