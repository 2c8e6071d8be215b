#pragma once

#include <string>
#include <vector>

// The command whose start is looked at.
struct StartCommand {
    std::vector<std::string> words;  // the program, and its arguments
    std::string unit;                // whose command it is; empty if the operator gave it
    bool isAssumed = false;          // that of the shipped unit, as the service manager has none
};

// What the operator gave: the program, if the first word is no option, and its arguments. Otherwise
// it is the program `agent`, and by default in that working folder.
StartCommand GivenCommand(const std::vector<std::string>& words, const std::string& agent,
                          const std::string& workdir);

// What the service starts whose working folder that is: `agent`, if no other program is known of.
StartCommand ServiceCommand(const std::string& agent, const std::string& workdir);
