// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// One end of a connection: messages come out of a stream of bytes, however it is cut, and go into it without waiting.
#pragma once

#include <stddef.h>

#include "worker/wire.h"

// Memory that only grows.
typedef struct vqdc_buffer {
    unsigned char* bytes;
    size_t capacity;
} vqdc_buffer;

// Room for `size` bytes; 0 when there is no memory.
int vqdc_reserve(vqdc_buffer* buffer, size_t size);

typedef struct vqdc_stream {
    int socket; // non-blocking; -1 when there is none
    vqd_wire_prefix prefix;
    vqdc_buffer body; // a final zero follows the bytes of the message
    size_t have;      // of the prefix and the body
    vqdc_buffer out;
    size_t out_size, out_sent;
} vqdc_stream;

// Begins with a connected socket, which the stream owns from then on; ends the one before.
void vqdc_stream_open(vqdc_stream* stream, int socket);
void vqdc_stream_close(vqdc_stream* stream);
void vqdc_stream_free(vqdc_stream* stream);

enum vqdc_step {
    VQDC_WOULD_BLOCK,
    VQDC_PROGRESS,
    VQDC_MESSAGE, // prefix and body are whole, until the next step
    VQDC_END,     // of the stream, between two messages
    VQDC_CUT,     // within a message
    VQDC_BROKEN,  // errno says why
    VQDC_NOT_WIRE,
    VQDC_OTHER_VERSION,
    VQDC_TOO_LARGE,
    VQDC_NO_MEMORY
};

// Receives once.
enum vqdc_step vqdc_stream_step(vqdc_stream* stream);

// Sends what is waiting, as far as that goes without blocking. That the other end has gone is found by the next step,
// behind all that it has sent before.
void vqdc_stream_flush(vqdc_stream* stream);
int vqdc_stream_sending(const vqdc_stream* stream);

// Sends a message, after those that wait. 0 when there is no memory.
int vqdc_stream_send(vqdc_stream* stream, uint16_t kind, uint32_t request, const void* body, size_t size);
