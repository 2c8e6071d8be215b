#pragma once

// The function of that name that the libraries define, for a program that has put one of its own in
// its place. Null if none of them does. The answer is a function's address.
void* NextFunction(const char* name);
