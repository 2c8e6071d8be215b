#include "platform/linux/crash/fault_text.h"

#include <array>
#include <bit>

#include "platform/crash.h"

namespace crash {
namespace {

struct Cause {
    int signal;
    int code;  // si_code; 0: any that the processor gives
    std::string_view text;
    bool hasAddress;
};

constexpr std::array kCauses{
    Cause{SIGSEGV, SEGV_MAPERR, "nothing is mapped at ", true},
    Cause{SIGSEGV, SEGV_ACCERR, "what was done is not allowed at ", true},
    Cause{SIGSEGV, 0, "no valid address", false},
    Cause{SIGBUS, BUS_ADRERR, "nothing is behind the mapping at ", true},
    Cause{SIGBUS, 0, "a bad access to ", true},
    Cause{SIGFPE, FPE_INTDIV, "an integer divided by 0, at ", true},
    Cause{SIGFPE, 0, "an arithmetic fault at ", true},
    Cause{SIGILL, 0, "no valid instruction at ", true},
    Cause{SIGTRAP, 0, "a trap at ", true},
    Cause{SIGSYS, 0, "a system call that is not allowed, at ", true},
};

void AddCause(const EXCEPTION_POINTERS& fault, BoundedText& text) {
    for (const Cause& cause : kCauses) {
        if (cause.signal == fault.signal &&
            (cause.code == 0 || cause.code == fault.info->si_code)) {
            (void)text.Add(": ").Add(cause.text);
            if (cause.hasAddress) {
                (void)text.AddHex(std::bit_cast<std::uint64_t>(fault.info->si_addr));
            }
            return;
        }
    }
}

}  // namespace

void AddFault(const EXCEPTION_POINTERS& fault, BoundedText& text) {
    (void)text.Add(NameOfFault(fault.signal));
    if (fault.info->si_code > 0) {
        AddCause(fault, text);
    } else if (fault.info->si_pid == fault.process) {
        (void)text.Add(": raised by the process itself");
    } else if (fault.info->si_pid == 0) {
        (void)text.Add(": sent from outside of its process namespace");
    } else {
        (void)text.Add(": sent by process ").Add(std::int64_t{fault.info->si_pid});
    }
    (void)text.Add(" (thread ").Add(std::int64_t{fault.thread}).Add(")");
}

}  // namespace crash

std::string_view NameOfFault(int signal) {
    switch (signal) {
        case SIGSEGV:
            return "SIGSEGV";
        case SIGBUS:
            return "SIGBUS";
        case SIGFPE:
            return "SIGFPE";
        case SIGILL:
            return "SIGILL";
        case SIGABRT:
            return "SIGABRT";
        case SIGTRAP:
            return "SIGTRAP";
        case SIGSYS:
            return "SIGSYS";
        default:
            return "signal";
    }
}
