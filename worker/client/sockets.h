// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Where workers listen: in $VQD_RUNTIME_DIR, and where that is not set, in the usual folders.
#pragma once

#include <stddef.h>

enum { VQDC_FOLDERS = 4, VQDC_PATH_BYTES = 108 }; // the latter: what the address of a Unix socket holds

// A folder of sockets in order of preference; 0 when there is none with this number, or one that others may write to.
int vqdc_folder(int number, char* into, size_t size);

// The path of the socket with this name in a folder, or the name itself when it is a path. 0 when there is none.
int vqdc_socket_path(const char* name, int number, char path[VQDC_PATH_BYTES]);

// A connected, non-blocking socket; or -1 and errno.
int vqdc_connect(const char* path);
