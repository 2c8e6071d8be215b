// Microseconds, the median of many, from asking an agent how it is over its control socket to the end of
// its answer: control SOCKET TIMES. It waits until somebody listens there.

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

static const char request[] = "{\"method\":\"com.orvane.zelka.GetStatus\"}";  // a null byte ends it

static double Now(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1e6 + now.tv_nsec / 1e3;
}

static int Compare(const void* a, const void* b) {
    const double x = *(const double*)a, y = *(const double*)b;
    return (x > y) - (x < y);
}

static int Connect(const char* path) {
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const struct timespec pause = {.tv_nsec = 10000000};
    for (int i = 0; i < 1000; ++i) {
        if (connect(fd, (struct sockaddr*)&address, sizeof address) == 0) {
            return fd;
        }
        nanosleep(&pause, NULL);
    }
    return -1;
}

// Whether the agent has answered, and not with an error.
static int Ask(int fd) {
    static char answer[65536];
    size_t got = 0;
    if (write(fd, request, sizeof request) != (ssize_t)sizeof request) {
        return 0;
    }
    while (got == 0 || answer[got - 1] != '\0') {
        const ssize_t more = read(fd, answer + got, sizeof answer - got);
        if (more <= 0) {
            return 0;
        }
        got += (size_t)more;
    }
    return strstr(answer, "\"parameters\"") != NULL && strstr(answer, "\"error\"") == NULL;
}

int main(int argc, char** argv) {
    const int times = argc == 3 ? atoi(argv[2]) : 0;
    double* const spent = calloc(times > 0 ? (size_t)times : 1, sizeof *spent);
    const int fd = argc == 3 ? Connect(argv[1]) : -1;
    if (times <= 0 || spent == NULL || fd < 0) {
        return 1;
    }
    for (int i = 0; i < times; ++i) {
        const double began = Now();
        if (!Ask(fd)) {
            return 1;
        }
        spent[i] = Now() - began;
    }
    qsort(spent, (size_t)times, sizeof *spent, Compare);
    printf("%f\n", spent[times / 2]);
    return 0;
}
