#pragma once

#include <string>
#include <string_view>

// A text of lines NAME=VALUE, be they of an ini file or not, in which every value is masked whose
// name is that of a secret (zelka_core/secret_name.h). Such a value reaches to the end of its line.
std::string WithoutSecrets(std::string_view text);
