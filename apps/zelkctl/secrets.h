#pragma once

#include <string>
#include <string_view>

#include "zelka_core/varlink/json.h"

// A text of lines NAME=VALUE, be they of an ini file or not, in which every value is masked whose
// name is that of a secret (zelka_core/secret_name.h). Such a value reaches to the end of its line.
std::string WithoutSecrets(std::string_view text);

// A value, of whose texts each is as that.
ZelkaCore::Json MaskSecrets(ZelkaCore::Json value);
