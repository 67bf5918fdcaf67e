// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// One connection and what comes by it. Nothing here waits but vqdc_wait().
#include "worker/client/client.h"

#include <errno.h>
#include <limits.h>
#include <poll.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "worker/client/json_member.h"
#include "worker/client/sockets.h"

_Static_assert((int)VQD_CLIENT_FRAME_REOPENED == VQD_WIRE_REOPENED &&
                   (int)VQD_CLIENT_FRAME_CORRECTED == VQD_WIRE_CORRECTED &&
                   (int)VQD_CLIENT_FRAME_PROFILE == VQD_WIRE_PROFILE &&
                   (int)VQD_CLIENT_FRAME_CLOCK_STEP == VQD_WIRE_CLOCK_STEP,
               "flags go from the wire to the caller as they are");

enum { NS_A_MS = 1000000, BETWEEN_ATTEMPTS_MS = 100, MOST_STEPS = 64 };

int64_t vqdc_now(void)
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (int64_t)now.tv_sec * 1000 * NS_A_MS + now.tv_nsec;
}

int64_t vqdc_deadline(int timeout_ms)
{
    return vqdc_now() + (int64_t)timeout_ms * NS_A_MS;
}

int vqdc_fail(vqd_client_error* error, int result, const char* format, ...)
{
    if (error == NULL)
        return result;
    error->result = result;
    error->code = 0;
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(error->text, sizeof error->text, format, arguments);
    va_end(arguments);
    if (length >= (int)sizeof error->text)
        error->text[vqdc_whole_characters(error->text, sizeof error->text - 1)] = '\0';
    return result;
}

vqd_client* vqdc_client_new(const char* name)
{
    vqd_client* const client = calloc(1, sizeof *client);
    if (client == NULL)
        return NULL;
    client->stream.socket = -1;
    client->name = strdup(name);
    if (client->name != NULL)
        return client;
    free(client);
    return NULL;
}

void vqdc_adopt(vqd_client* client, int socket)
{
    vqdc_stream_open(&client->stream, socket);
    client->greeted = client->in_session = 0;
    client->pull = client->awaited = 0;
    client->farewell[0] = '\0';
}

// One round over the places where the worker may listen.
static void try_to_connect(vqd_client* client)
{
    char path[VQDC_PATH_BYTES];
    int tried = 0, telling = 0;
    client->next_attempt = vqdc_now() + (int64_t)BETWEEN_ATTEMPTS_MS * NS_A_MS;
    for (int folder = 0; folder < VQDC_FOLDERS; ++folder) {
        if (!vqdc_socket_path(client->name, folder, path))
            continue;
        const int socket = vqdc_connect(path);
        if (socket >= 0) {
            vqdc_adopt(client, socket);
            return;
        }
        // A socket that is there but does not answer tells more than one that is not there.
        if (!tried || (!telling && errno != ENOENT)) {
            telling = errno != ENOENT;
            snprintf(client->why, sizeof client->why, "no worker answers at %s: %s", path, strerror(errno));
        }
        tried = 1;
    }
    if (!tried)
        snprintf(client->why, sizeof client->why, "there is no folder for a socket of the name %.100s", client->name);
}

static void drop_connection(vqd_client* client)
{
    vqdc_stream_close(&client->stream);
    client->greeted = client->in_session = 0;
    client->pull = client->awaited = 0;
    client->has_arrived = 0;
    snprintf(client->why, sizeof client->why, "the worker %.200s has gone", client->name);
}

// Keeps the text of a message. 0 when it cannot be one.
static int keep_text(vqd_client* client, vqdc_buffer* text, int* has)
{
    vqdc_buffer* const body = &client->stream.body;
    if (strlen((const char*)body->bytes) != client->stream.prefix.size)
        return 0;
    const vqdc_buffer old = *text;
    *text = *body;
    *body = old;
    *has = 1;
    return 1;
}

static void forget_oldest_event(vqd_client* client)
{
    client->event_bytes -= strlen(client->events[client->first_event]);
    free(client->events[client->first_event]);
    client->first_event = (client->first_event + 1) % VQDC_MOST_EVENTS;
    --client->event_count;
    ++client->missed_events;
}

static int keep_event(vqd_client* client)
{
    const size_t size = client->stream.prefix.size;
    const char* const text = (const char*)client->stream.body.bytes;
    if (strlen(text) != size)
        return 0;
    while (client->event_count == VQDC_MOST_EVENTS ||
           (client->event_count > 0 && client->event_bytes + size > VQD_WIRE_MOST_MESSAGE))
        forget_oldest_event(client);
    char* const copy = strdup(text);
    if (copy == NULL) {
        ++client->missed_events;
        return 1;
    }
    client->events[(client->first_event + client->event_count++) % VQDC_MOST_EVENTS] = copy;
    client->event_bytes += size;
    return 1;
}

static int keep_frame(vqd_client* client)
{
    vqdc_buffer* const body = &client->stream.body;
    vqd_wire_frame* const header = (vqd_wire_frame*)body->bytes;
    const uint32_t size = client->stream.prefix.size;
    if (client->pull == 0 || client->stream.prefix.request != client->pull || size < sizeof *header)
        return 0;
    const uint64_t planes = 4ull * header->width * header->height;
    if ((header->flags & VQD_WIRE_PACKED) != 0 || planes == 0 || header->plane_bytes != planes ||
        size != sizeof *header + planes)
        return 0;
    if (header->monotonic_time_ns < 0 || header->monotonic_time_ns > INT64_MAX / 4)
        return 0; // times are subtracted and added without a look
    if (client->in_session && (header->session != client->last_session || header->sequence <= client->pull_after))
        return 0;
    header->serial[sizeof header->serial - 1] = '\0';
    const vqdc_buffer old = client->arrived.message;
    client->arrived.message = *body;
    *body = old;
    client->pull = 0;
    client->has_arrived = 1;
    return 1;
}

// 0 for what a worker does not say.
static int take_in(vqd_client* client)
{
    const vqd_wire_prefix* const prefix = &client->stream.prefix;
    if (!client->greeted && prefix->kind != VQD_WIRE_STATE)
        return 0;
    switch (prefix->kind) {
    case VQD_WIRE_STATE:
        client->greeted = 1;
        return keep_text(client, &client->state, &client->has_state);
    case VQD_WIRE_PARAMETERS:
        return keep_text(client, &client->parameters, &client->has_parameters);
    case VQD_WIRE_EVENT:
        return keep_event(client);
    case VQD_WIRE_FRAME:
        return keep_frame(client);
    case VQD_WIRE_REPLY:
        if (client->pull != 0 && prefix->request == client->pull) // every worker can answer this program's pulls
            return 0;
        if (prefix->request == 0)
            vqdc_json_string(vqdc_json_member((const char*)client->stream.body.bytes, "error"), client->farewell,
                             sizeof client->farewell);
        if (client->awaited == 0 || prefix->request != client->awaited) // its caller has stopped waiting
            return 1;
        client->awaited = 0;
        return keep_text(client, &client->reply, &client->has_reply);
    default:
        return 0;
    }
}

int vqdc_lose(vqd_client* client, int result, vqd_client_error* error, const char* what)
{
    drop_connection(client);
    return vqdc_fail(error, result, "%.100s: %s", client->name, what);
}

static int fail_step(vqd_client* client, enum vqdc_step step, vqd_client_error* error)
{
    const int version = client->stream.prefix.version, number = errno;
    switch (step) {
    case VQDC_END:
        // A worker without a camera ends its connections when it has one: readers come again for frames.
        if (!client->in_session && !client->has_arrived && client->awaited == 0 && *client->farewell == '\0') {
            drop_connection(client);
            return VQD_CLIENT_OK;
        }
        return vqdc_lose(client, VQD_CLIENT_LOST, error,
                         *client->farewell != '\0' ? client->farewell : "the worker has ended the connection");
    case VQDC_CUT:
        return vqdc_lose(client, VQD_CLIENT_LOST, error, "the connection ended within a message");
    case VQDC_BROKEN:
        return vqdc_lose(client, VQD_CLIENT_LOST, error, strerror(number));
    case VQDC_OTHER_VERSION:
        drop_connection(client);
        return vqdc_fail(error, VQD_CLIENT_WIRE,
                         "%.100s: the worker speaks version %d of the wire, and this program version %d", client->name,
                         version, VQD_WIRE_VERSION);
    case VQDC_TOO_LARGE:
        return vqdc_lose(client, VQD_CLIENT_WIRE, error, "a message is larger than the wire allows");
    case VQDC_NO_MEMORY:
        return vqdc_lose(client, VQD_CLIENT_SYSTEM, error, "there is no memory for a message");
    default:
        return vqdc_lose(client, VQD_CLIENT_WIRE, error, "what answers there is no worker");
    }
}

int vqdc_advance(vqd_client* client, vqd_client_error* error)
{
    if (client->stream.socket < 0 && vqdc_now() >= client->next_attempt)
        try_to_connect(client);
    if (client->stream.socket < 0)
        return VQD_CLIENT_OK;
    vqdc_stream_flush(&client->stream);
    // Not for ever, however much the other end sends: the caller has a deadline.
    for (int i = 0; i < MOST_STEPS; ++i) {
        const enum vqdc_step step = vqdc_stream_step(&client->stream);
        if (step == VQDC_WOULD_BLOCK)
            return VQD_CLIENT_OK;
        if (step == VQDC_MESSAGE && !take_in(client))
            return vqdc_lose(client, VQD_CLIENT_WIRE, error, "a message is not what a worker sends");
        if (step != VQDC_MESSAGE && step != VQDC_PROGRESS)
            return fail_step(client, step, error);
        if (client->has_arrived && step == VQDC_MESSAGE)
            return VQD_CLIENT_OK; // what follows can wait, a frame is the newest for a moment only
    }
    return VQD_CLIENT_OK;
}

int vqdc_pull(vqd_client* client, uint64_t after, vqd_client_error* error)
{
    if (client->stream.socket < 0 || client->pull != 0 || client->has_arrived)
        return VQD_CLIENT_OK;
    const vqd_wire_pull pull = {after, 0, 0};
    if (++client->last_request == 0)
        client->last_request = 1;
    if (!vqdc_stream_send(&client->stream, VQD_WIRE_PULL, client->last_request, &pull, sizeof pull))
        return vqdc_fail(error, VQD_CLIENT_SYSTEM, "there is no memory for a message");
    client->pull = client->last_request;
    client->pull_after = after;
    return VQD_CLIENT_OK;
}

const vqd_wire_frame* vqdc_header(const vqdc_frame* frame)
{
    return (const vqd_wire_frame*)frame->message.bytes;
}

void vqdc_take(vqd_client* client, vqdc_frame* frame)
{
    const vqdc_frame old = *frame;
    *frame = client->arrived;
    client->arrived = old;
    client->has_arrived = 0;
    const vqd_wire_frame* const header = vqdc_header(frame);
    const int follows = header->session == client->last_session && header->sequence > client->last_sequence;
    frame->missed = follows ? header->sequence - client->last_sequence - 1 : 0;
    client->last_session = header->session;
    client->last_sequence = header->sequence;
    client->in_session = 1;
}

void vqdc_show(const vqdc_frame* frame, vqd_client_frame* into)
{
    const vqd_wire_frame* const header = vqdc_header(frame);
    const uint16_t* const planes = (const uint16_t*)(frame->message.bytes + sizeof *header);
    const vqd_client_frame shown = {
        .session = header->session,
        .sequence = header->sequence,
        .real_time_ns = header->real_time_ns,
        .monotonic_time_ns = header->monotonic_time_ns,
        .stamp_ms = header->stamp_ms,
        .count = header->count,
        .temperature = header->temperature,
        .flags = header->flags,
        .dropped = header->dropped,
        .missed = frame->missed,
        .width = header->width,
        .height = header->height,
        .amplitude = planes,
        .depth = planes + (size_t)header->width * header->height,
    };
    *into = shown;
    memcpy(into->serial, header->serial, sizeof into->serial);
}

void vqdc_wait(vqd_client* const* clients, int count, int64_t until)
{
    struct pollfd sockets[VQDC_MOST_CLIENTS];
    for (int i = 0; i < count; ++i) {
        const vqdc_stream* const stream = &clients[i]->stream;
        const short events = POLLIN | (vqdc_stream_sending(stream) ? POLLOUT : 0);
        sockets[i] = (struct pollfd){.fd = stream->socket, .events = events};
        if (stream->socket < 0 && clients[i]->next_attempt < until)
            until = clients[i]->next_attempt;
    }
    const int64_t left = until - vqdc_now();
    const int64_t ms = left > 0 ? (left + NS_A_MS - 1) / NS_A_MS : 0;
    poll(sockets, (nfds_t)count, ms > INT_MAX ? INT_MAX : (int)ms);
}
