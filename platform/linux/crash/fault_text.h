#pragma once

#include "platform/bounded_text.h"
#include "platform/linux/crash/fault.h"

namespace crash {

// "SIGSEGV: nothing is mapped at 0x0 (thread 712)". Runs in the signal handler.
void AddFault(const EXCEPTION_POINTERS& fault, BoundedText& text);

}  // namespace crash
