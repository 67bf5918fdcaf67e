// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// A message is received into one piece of memory, so that a frame is copied once: from the socket to where it stays.
#include "worker/client/stream.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

int vqdc_reserve(vqdc_buffer* buffer, size_t size)
{
    if (size <= buffer->capacity)
        return 1;
    unsigned char* const bytes = realloc(buffer->bytes, size);
    if (bytes == NULL)
        return 0;
    buffer->bytes = bytes;
    buffer->capacity = size;
    return 1;
}

void vqdc_stream_open(vqdc_stream* stream, int socket)
{
    vqdc_stream_close(stream);
    stream->socket = socket;
}

void vqdc_stream_close(vqdc_stream* stream)
{
    if (stream->socket >= 0)
        close(stream->socket);
    stream->socket = -1;
    stream->have = 0;
    stream->out_size = stream->out_sent = 0;
}

void vqdc_stream_free(vqdc_stream* stream)
{
    vqdc_stream_close(stream);
    free(stream->body.bytes);
    free(stream->out.bytes);
}

// Whether a prefix that has come whole announces a message that may come.
static enum vqdc_step judge(const vqdc_stream* stream)
{
    const vqd_wire_prefix* const prefix = &stream->prefix;
    if (memcmp(prefix->magic, VQD_WIRE_MAGIC, sizeof prefix->magic) != 0)
        return VQDC_NOT_WIRE;
    if (prefix->version != VQD_WIRE_VERSION)
        return VQDC_OTHER_VERSION;
    return prefix->size > VQD_WIRE_MOST_MESSAGE ? VQDC_TOO_LARGE : VQDC_PROGRESS;
}

enum vqdc_step vqdc_stream_step(vqdc_stream* stream)
{
    const size_t head = sizeof stream->prefix;
    if (stream->have >= head && stream->have == head + stream->prefix.size)
        stream->have = 0;
    const int in_body = stream->have >= head;
    unsigned char* const into =
        in_body ? stream->body.bytes + (stream->have - head) : (unsigned char*)&stream->prefix + stream->have;
    const size_t wanted = (in_body ? head + stream->prefix.size : head) - stream->have;
    const ssize_t came = recv(stream->socket, into, wanted, 0);
    // A reset is an end with messages of ours unread.
    if (came == 0 || (came < 0 && errno == ECONNRESET))
        return stream->have == 0 ? VQDC_END : VQDC_CUT;
    if (came < 0 && errno == EINTR)
        return VQDC_PROGRESS;
    if (came < 0)
        return errno == EAGAIN || errno == EWOULDBLOCK ? VQDC_WOULD_BLOCK : VQDC_BROKEN;
    stream->have += (size_t)came;
    if (stream->have == head && !in_body) {
        const enum vqdc_step judged = judge(stream);
        if (judged != VQDC_PROGRESS)
            return judged;
        if (!vqdc_reserve(&stream->body, (size_t)stream->prefix.size + 1))
            return VQDC_NO_MEMORY;
    }
    if (stream->have < head || stream->have < head + stream->prefix.size)
        return VQDC_PROGRESS;
    stream->body.bytes[stream->prefix.size] = '\0';
    return VQDC_MESSAGE;
}

int vqdc_stream_sending(const vqdc_stream* stream)
{
    return stream->out_sent < stream->out_size;
}

void vqdc_stream_flush(vqdc_stream* stream)
{
    while (vqdc_stream_sending(stream)) {
        const ssize_t sent = send(stream->socket, stream->out.bytes + stream->out_sent,
                                  stream->out_size - stream->out_sent, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return;
        stream->out_sent = sent < 0 ? stream->out_size : stream->out_sent + (size_t)sent;
    }
    stream->out_size = stream->out_sent = 0;
}

int vqdc_stream_send(vqdc_stream* stream, uint16_t kind, uint32_t request, const void* body, size_t size)
{
    vqd_wire_prefix prefix = {{0}, VQD_WIRE_VERSION, kind, (uint32_t)size, request};
    memcpy(prefix.magic, VQD_WIRE_MAGIC, sizeof prefix.magic);
    if (!vqdc_reserve(&stream->out, stream->out_size + sizeof prefix + size))
        return 0;
    memcpy(stream->out.bytes + stream->out_size, &prefix, sizeof prefix);
    memcpy(stream->out.bytes + stream->out_size + sizeof prefix, body, size);
    stream->out_size += sizeof prefix + size;
    vqdc_stream_flush(stream);
    return 1;
}
