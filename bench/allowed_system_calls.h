/**
 * @file allowed_system_calls.h
 * @brief Proof that a thread makes no other system calls than those that are known.
 */
#ifndef ALLOWED_SYSTEM_CALLS_H
#define ALLOWED_SYSTEM_CALLS_H

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>

#include <cstddef>
#include <initializer_list>
#include <vector>

/** From here on any other call of this thread ends its process (SIGSYS); false: refused. */
inline bool AllowOnly(std::initializer_list<unsigned> calls) {
    std::vector<sock_filter> program = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    for (const unsigned call : calls) {
        program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1));
        program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    }
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS));
    const sock_fprog filter = {static_cast<unsigned short>(program.size()), program.data()};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

#endif  // ALLOWED_SYSTEM_CALLS_H
