#pragma once

#include <wx/string.h>

// What the exception is that is being handled: its type and what it says of itself, or
// "<unknown exception>". Called inside a catch block; ends in std::terminate elsewhere.
wxString DescribeCurrentException();
