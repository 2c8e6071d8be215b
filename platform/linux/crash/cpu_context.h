#pragma once

#include <sys/types.h>
#include <ucontext.h>

#include "platform/minidump_format.h"

// A thread's registers in the form that the dump holds. Runs in the signal handler.

namespace crash {

void ReadContext(const ucontext_t& source, minidump::ContextAmd64& context);

// The registers of a thread that this process has stopped with ptrace. False if they are not to be
// had: the thread is gone, or has not stopped.
bool ReadContextOfTracedThread(pid_t thread, minidump::ContextAmd64& context);

}  // namespace crash
