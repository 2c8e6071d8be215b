#include "platform/linux/crash/thread_alt_stacks.h"

#include <dlfcn.h>
#include <pthread.h>
#include <sys/auxv.h>
#include <sys/mman.h>

#include <cerrno>
#include <csignal>
#include <memory>
#include <new>

namespace crash {
namespace {

constexpr std::size_t kGuardSize = 4096;
constexpr std::size_t kHandlerSize = std::size_t{64} * 1024;

// The handler's own need, and what the kernel stores on the stack before it calls the handler.
std::size_t StackSize() {
    const std::size_t kernelSize = getauxval(AT_MINSIGSTKSZ);
    return kHandlerSize + (kernelSize + kGuardSize - 1) / kGuardSize * kGuardSize;
}

bool HasAltStack() {
    stack_t current{};
    return sigaltstack(nullptr, &current) != 0 || (current.ss_flags & SS_DISABLE) == 0;
}

}  // namespace

AltStack::AltStack() {
    if (HasAltStack()) {
        return;
    }
    const std::size_t size = kGuardSize + StackSize();
    void* const memory = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) {
        return;
    }
    (void)mprotect(memory, kGuardSize, PROT_NONE);
    const stack_t stack{.ss_sp = static_cast<char*>(memory) + kGuardSize,
                        .ss_flags = 0,
                        .ss_size = size - kGuardSize};
    if (sigaltstack(&stack, nullptr) != 0) {
        (void)munmap(memory, size);
        return;
    }
    m_memory = memory;
    m_size = size;
}

AltStack::~AltStack() {
    if (m_memory == nullptr) {
        return;
    }
    stack_t none{};
    none.ss_flags = SS_DISABLE;
    (void)sigaltstack(&none, nullptr);
    (void)munmap(m_memory, m_size);
}

}  // namespace crash

// A sanitizer brings a pthread_create of its own, which has to stay the first.
#if !defined(WITH_SANITIZER)

namespace {

using Routine = void* (*)(void*);

struct ThreadStart {
    Routine routine;
    void* argument;
};

void* RunWithAltStack(void* argument) {
    const ThreadStart start = *std::unique_ptr<ThreadStart>(static_cast<ThreadStart*>(argument));
    const crash::AltStack stack;
    return start.routine(start.argument);
}

}  // namespace

// Takes the place of the C library's function for the program and every library it loads, so that
// all threads get an alternate stack, whoever makes them. Only the C library's own helper threads
// (timers, asynchronous I/O) are made without it.
// NOLINTNEXTLINE(readability-inconsistent-declaration-parameter-name): the library's are reserved.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, Routine routine,
                              void* argument) noexcept {
    static const auto create =
        reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    auto start = std::unique_ptr<ThreadStart>(new (std::nothrow) ThreadStart{routine, argument});
    if (start == nullptr) {
        return EAGAIN;
    }
    const int code = create(thread, attributes, RunWithAltStack, start.get());
    if (code == 0) {
        (void)start.release();  // the thread's now
    }
    return code;
}

#endif
