// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The folders of sockets, and connecting without waiting.
#include "worker/client/sockets.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

// Anybody may make a folder in /tmp before its owner does.
static int is_ours(const char* folder)
{
    struct stat status;
    return lstat(folder, &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid() &&
           (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

int vqdc_folder(int number, char* into, size_t size)
{
    int length = -1;
    const char* const named = getenv("VQD_RUNTIME_DIR");
    if (named != NULL && *named != '\0') {
        length = number == 0 ? snprintf(into, size, "%s", named) : -1;
    } else if (number == 0) {
        length = snprintf(into, size, "/run/vqd");
    } else if (number == 1) {
        length = snprintf(into, size, "/run/vqd/serve");
    } else if (number == 2) {
        const char* const runtime = getenv("XDG_RUNTIME_DIR");
        if (runtime != NULL && runtime[0] == '/')
            length = snprintf(into, size, "%s/vqd", runtime);
    } else if (number == 3) {
        length = snprintf(into, size, "/tmp/vqd-%u", (unsigned)geteuid());
        if (length > 0 && (size_t)length < size && !is_ours(into))
            return 0;
    }
    return length > 0 && (size_t)length < size;
}

int vqdc_socket_path(const char* name, int number, char path[VQDC_PATH_BYTES])
{
    if (strchr(name, '/') != NULL)
        return number == 0 && (size_t)snprintf(path, VQDC_PATH_BYTES, "%s", name) < VQDC_PATH_BYTES;
    char folder[VQDC_PATH_BYTES];
    return vqdc_folder(number, folder, sizeof folder) &&
           (size_t)snprintf(path, VQDC_PATH_BYTES, "%s/%s.sock", folder, name) < VQDC_PATH_BYTES;
}

int vqdc_connect(const char* path)
{
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    memcpy(address.sun_path, path, strlen(path)); // shorter than the field, see vqdc_socket_path()
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (descriptor < 0)
        return -1;
    if (connect(descriptor, (const struct sockaddr*)&address, sizeof address) == 0)
        return descriptor;
    const int error = errno;
    close(descriptor);
    errno = error;
    return -1;
}
