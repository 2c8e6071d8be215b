#pragma once

#include <string>
#include <string_view>

// A text of lines NAME=VALUE, be they of an ini file or not, in which every value is "***" whose
// name contains "password", "secret" or "token", in upper or lower case. Such a value reaches to
// the end of its line.
std::string WithoutSecrets(std::string_view text);
