#pragma once

#include <string>
#include <string_view>

#include "zelka_core/varlink/json.h"

// What the commands print. A standard output that does not take it ends the command.

// How a text is meant. Seen on a terminal alone, and not with the variable NO_COLOR.
enum class Tone { kPlain, kHeading, kGood, kWarning, kBad };

// Prints to standard output.
void Print(std::string_view text);
void PrintLine(std::string_view text);

// Prints a line of JSON.
void PrintJson(const ZelkaCore::Json& value);

// Has the reader see what was printed.
void FlushOutput();

// The text with what makes the terminal show its tone.
std::string Toned(const std::string& text, Tone tone);

// Prints a line to standard error, with the program's name in front.
void Tell(const std::string& text);
