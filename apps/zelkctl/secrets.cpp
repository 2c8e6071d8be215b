#include "apps/zelkctl/secrets.h"

#include <algorithm>
#include <utility>

#include "zelka_core/secret_name.h"

using ZelkaCore::Json;

namespace {

// Where the value of the first secret of the line begins; npos if there is none.
std::size_t BeginOfSecret(std::string_view line) {
    auto end = line.find('=');
    while (end != std::string_view::npos &&
           !ZelkaCore::IsSecretName(std::string(line.substr(0, end)))) {
        end = line.find('=', end + 1);
    }
    return end == std::string_view::npos ? end : end + 1;
}

}  // namespace

std::string WithoutSecrets(std::string_view text) {
    std::string masked;
    while (!text.empty()) {
        const std::size_t size = std::min(text.find_first_of("\r\n"), text.size());
        const std::string_view line = text.substr(0, size);
        const std::size_t begin = BeginOfSecret(line);
        masked += line.substr(0, begin);
        if (begin != std::string_view::npos) {
            masked += ZelkaCore::kMasked;
        }
        masked += text.substr(size, 1);
        text.remove_prefix(std::min(size + 1, text.size()));
    }
    return masked;
}

Json MaskSecrets(Json value) {
    if (value.is_string()) {
        return WithoutSecrets(value.get_ref<const std::string&>());
    }
    if (value.is_structured()) {
        for (Json& part : value) {
            part = MaskSecrets(std::move(part));
        }
    }
    return value;
}
