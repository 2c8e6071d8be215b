#include "platform/linux/crash/cpu_context.h"

#include <elf.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/user.h>
#include <unistd.h>

#include <cstring>

#if !defined(__x86_64__)
#error "The register record of this processor's minidumps is missing here."
#endif

namespace crash {
namespace {

std::uint16_t Selector(std::uint64_t value) {
    return static_cast<std::uint16_t>(value);
}

template <typename Registers>
bool GetRegisters(pid_t thread, long kind, Registers& registers) {
    iovec target{.iov_base = &registers, .iov_len = sizeof registers};
    return syscall(SYS_ptrace, PTRACE_GETREGSET, thread, kind, &target) == 0 &&
           target.iov_len == sizeof registers;
}

}  // namespace

void ReadContext(const ucontext_t& source, minidump::ContextAmd64& context) {
    const auto general = [&source](int number) {
        return static_cast<std::uint64_t>(source.uc_mcontext.gregs[number]);
    };
    context = {};
    context.contextFlags = minidump::kContextFlagsAmd64;
    const std::uint64_t selectors = general(REG_CSGSFS);  // cs, gs, fs, ss from low to high
    context.segCs = Selector(selectors);
    context.segGs = Selector(selectors >> 16);
    context.segFs = Selector(selectors >> 32);
    context.segSs = Selector(selectors >> 48);
    context.eFlags = static_cast<std::uint32_t>(general(REG_EFL));
    context.rax = general(REG_RAX);
    context.rcx = general(REG_RCX);
    context.rdx = general(REG_RDX);
    context.rbx = general(REG_RBX);
    context.rsp = general(REG_RSP);
    context.rbp = general(REG_RBP);
    context.rsi = general(REG_RSI);
    context.rdi = general(REG_RDI);
    context.r8 = general(REG_R8);
    context.r9 = general(REG_R9);
    context.r10 = general(REG_R10);
    context.r11 = general(REG_R11);
    context.r12 = general(REG_R12);
    context.r13 = general(REG_R13);
    context.r14 = general(REG_R14);
    context.r15 = general(REG_R15);
    context.rip = general(REG_RIP);
    if (source.uc_mcontext.fpregs != nullptr) {
        context.mxCsr = source.uc_mcontext.fpregs->mxcsr;
        static_assert(sizeof *source.uc_mcontext.fpregs == sizeof context.floatSave);
        std::memcpy(context.floatSave.data(), source.uc_mcontext.fpregs, sizeof context.floatSave);
    }
}

bool ReadContextOfTracedThread(pid_t thread, minidump::ContextAmd64& context) {
    user_regs_struct general{};
    if (!GetRegisters(thread, NT_PRSTATUS, general)) {
        return false;
    }
    context = {};
    context.contextFlags = minidump::kContextFlagsAmd64;
    context.segCs = Selector(general.cs);
    context.segDs = Selector(general.ds);
    context.segEs = Selector(general.es);
    context.segFs = Selector(general.fs);
    context.segGs = Selector(general.gs);
    context.segSs = Selector(general.ss);
    context.eFlags = static_cast<std::uint32_t>(general.eflags);
    context.rax = general.rax;
    context.rcx = general.rcx;
    context.rdx = general.rdx;
    context.rbx = general.rbx;
    context.rsp = general.rsp;
    context.rbp = general.rbp;
    context.rsi = general.rsi;
    context.rdi = general.rdi;
    context.r8 = general.r8;
    context.r9 = general.r9;
    context.r10 = general.r10;
    context.r11 = general.r11;
    context.r12 = general.r12;
    context.r13 = general.r13;
    context.r14 = general.r14;
    context.r15 = general.r15;
    context.rip = general.rip;
    user_fpregs_struct floating{};
    if (GetRegisters(thread, NT_PRFPREG, floating)) {
        context.mxCsr = floating.mxcsr;
        static_assert(sizeof floating == sizeof context.floatSave);
        std::memcpy(context.floatSave.data(), &floating, sizeof floating);
    }
    return true;
}

}  // namespace crash
