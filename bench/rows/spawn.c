// Microseconds for running a program to its end with posix_spawn and waitpid; process.lua is the
// other side.

#include <spawn.h>
#include <stdio.h>
#include <sys/wait.h>
#include <time.h>

extern char** environ;

static const int times = 300;

static double Now(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1e6 + now.tv_nsec / 1e3;
}

int main(void) {
    char* arguments[] = {"/bin/true", NULL};
    const double began = Now();
    for (int i = 0; i < times; ++i) {
        pid_t pid;
        int status = 1;
        if (posix_spawn(&pid, arguments[0], NULL, NULL, arguments, environ) != 0 ||
            waitpid(pid, &status, 0) != pid || status != 0) {
            return 1;
        }
    }
    printf("%f\n", (Now() - began) / times);
    return 0;
}
