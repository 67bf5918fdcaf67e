// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Takes memory of usbfs, by mapping it from the first root hub, and runs a program while it is held.
//   hold_memory KIB PROGRAM [ARGUMENTS...]
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

int main(int argc, char** argv)
{
    if (argc < 3)
        return fprintf(stderr, "usage: hold_memory KIB PROGRAM [ARGUMENTS...]\n"), 2;
    const int hub = open("/dev/bus/usb/001/001", O_RDWR | O_CLOEXEC);
    if (hub < 0)
        return perror("/dev/bus/usb/001/001"), 1;
    constexpr size_t kPiece = 64 * 1024; // the kernel wants each mapping in one piece of its memory
    for (size_t held = 0; held < strtoul(argv[1], nullptr, 10) * 1024; held += kPiece)
        if (mmap(nullptr, kPiece, PROT_READ | PROT_WRITE, MAP_SHARED, hub, 0) == MAP_FAILED)
            return perror("mmap"), 1;
    const pid_t child = fork();
    if (child == 0) {
        execvp(argv[2], argv + 2);
        perror(argv[2]);
        _exit(127);
    }
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}
