#pragma once

#include <sys/types.h>
#include <ucontext.h>

#include <csignal>

struct EXCEPTION_POINTERS {
    int signal;
    const siginfo_t* info;
    const ucontext_t* context;  // the thread's registers when it faulted
    pid_t process;
    pid_t thread;
};
