#pragma once

#include <fcntl.h>

#include <csignal>

// pidfd_open and pidfd_send_signal. The C library of 2022 (glibc 2.36) declares them without the C
// linkage that they have.
extern "C" {
#include <sys/pidfd.h>
}
