// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The exported functions of one connection, but for requests: connecting, frames, events.
#include "worker/client/vqd_client.h"

#include <stdlib.h>
#include <string.h>

#include "worker/client/client.h"
#include "worker/client/sockets.h"

vqd_client* vqd_client_connect(const char* name, int timeout_ms, vqd_client_error* error)
{
    char path[VQDC_PATH_BYTES];
    if (name == NULL || *name == '\0' || timeout_ms < 0) {
        vqdc_fail(error, VQD_CLIENT_USAGE, "vqd_client_connect() needs a name, and a time-out of 0 or more");
        return NULL;
    }
    if (strchr(name, '/') != NULL && !vqdc_socket_path(name, 0, path)) {
        vqdc_fail(error, VQD_CLIENT_USAGE, "the path of a socket has at most %d bytes", VQDC_PATH_BYTES - 1);
        return NULL;
    }
    vqd_client* const client = vqdc_client_new(name);
    if (client == NULL) {
        vqdc_fail(error, VQD_CLIENT_SYSTEM, "there is no memory for a client");
        return NULL;
    }
    const int64_t deadline = vqdc_deadline(timeout_ms);
    for (;;) {
        if (vqdc_advance(client, error) != VQD_CLIENT_OK)
            break;
        if (client->greeted)
            return client;
        if (vqdc_now() >= deadline) {
            if (client->stream.socket < 0)
                vqdc_fail(error, VQD_CLIENT_NO_WORKER, "%s", client->why);
            else
                vqdc_fail(error, VQD_CLIENT_NO_WORKER, "%.150s: no worker said who it is within %d ms", name,
                          timeout_ms);
            break;
        }
        vqdc_wait(&client, 1, deadline);
    }
    vqd_client_close(client);
    return NULL;
}

void vqd_client_close(vqd_client* client)
{
    if (client == NULL)
        return;
    vqdc_stream_free(&client->stream);
    free(client->name);
    free(client->arrived.message.bytes);
    free(client->held.message.bytes);
    free(client->state.bytes);
    free(client->parameters.bytes);
    free(client->reply.bytes);
    for (unsigned i = 0; i < client->event_count; ++i)
        free(client->events[(client->first_event + i) % VQDC_MOST_EVENTS]);
    free(client->taken_event);
    free(client);
}

static int time_is_up(const vqd_client* client, int timeout_ms, vqd_client_error* error)
{
    if (client->stream.socket < 0)
        return vqdc_fail(error, VQD_CLIENT_TIMEOUT, "%s", client->why);
    return vqdc_fail(error, VQD_CLIENT_TIMEOUT, "%.150s: no frame came within %d ms", client->name, timeout_ms);
}

// Whether the frame that has arrived is the one that was delivered last: a new connection to the same session begins
// with the newest frame.
static int is_known(const vqd_client* client)
{
    const vqd_wire_frame* const header = vqdc_header(&client->arrived);
    return client->has_held && header->session == client->last_session && header->sequence <= client->last_sequence;
}

// Waits for a frame; with `again` the one that was delivered last will do.
static int deliver(vqd_client* client, int again, int timeout_ms, vqd_client_frame* frame, vqd_client_error* error)
{
    const int64_t deadline = vqdc_deadline(timeout_ms);
    for (;;) {
        int result = vqdc_pull(client, client->in_session && !again ? client->last_sequence : 0, error);
        if (result == VQD_CLIENT_OK)
            result = vqdc_advance(client, error);
        if (result != VQD_CLIENT_OK)
            return result;
        if (client->has_arrived && !again && is_known(client)) {
            client->has_arrived = 0;
            client->in_session = 1;
            continue;
        }
        if (client->has_arrived) {
            vqdc_take(client, &client->held);
            client->has_held = 1;
            vqdc_show(&client->held, frame);
            return VQD_CLIENT_OK;
        }
        if (vqdc_now() >= deadline)
            return time_is_up(client, timeout_ms, error);
        if (client->stream.socket < 0 || client->pull != 0)
            vqdc_wait(&client, 1, deadline);
    }
}

// Refuses what no call for a frame may have.
static int refuse(const vqd_client* client, int timeout_ms, const vqd_client_frame* frame, vqd_client_error* error)
{
    if (client == NULL || frame == NULL || timeout_ms < 0)
        return vqdc_fail(error, VQD_CLIENT_USAGE, "a client, a frame and a time-out of 0 or more are needed");
    if (client->in_sets)
        return vqdc_fail(error, VQD_CLIENT_USAGE, "%.150s delivers its frames in sets", client->name);
    return VQD_CLIENT_OK;
}

int vqd_client_next(vqd_client* client, int timeout_ms, vqd_client_frame* frame, vqd_client_error* error)
{
    if (refuse(client, timeout_ms, frame, error) != VQD_CLIENT_OK)
        return VQD_CLIENT_USAGE;
    return deliver(client, 0, timeout_ms, frame, error);
}

int vqd_client_latest(vqd_client* client, int timeout_ms, vqd_client_frame* frame, vqd_client_error* error)
{
    if (refuse(client, timeout_ms, frame, error) != VQD_CLIENT_OK)
        return VQD_CLIENT_USAGE;
    const int result = vqdc_advance(client, error);
    if (result != VQD_CLIENT_OK)
        return result;
    // The answer to an earlier call may be old. As long as it has not come, there is nothing newer than the last frame.
    client->has_arrived = 0;
    if (client->pull != 0 && client->in_session && client->has_held) {
        client->held.missed = 0;
        vqdc_show(&client->held, frame);
        return VQD_CLIENT_OK;
    }
    return deliver(client, 1, timeout_ms, frame, error);
}

int vqd_client_update(vqd_client* client, vqd_client_error* error)
{
    if (client == NULL)
        return vqdc_fail(error, VQD_CLIENT_USAGE, "vqd_client_update() needs a client");
    return vqdc_advance(client, error);
}

const char* vqd_client_state(const vqd_client* client)
{
    return client != NULL && client->has_state ? (const char*)client->state.bytes : NULL;
}

const char* vqd_client_parameters(const vqd_client* client)
{
    return client != NULL && client->has_parameters ? (const char*)client->parameters.bytes : NULL;
}

const char* vqd_client_event(vqd_client* client, uint32_t* missed)
{
    if (missed != NULL)
        *missed = client != NULL ? client->missed_events : 0;
    if (client == NULL || client->event_count == 0)
        return NULL;
    free(client->taken_event);
    client->taken_event = client->events[client->first_event];
    client->first_event = (client->first_event + 1) % VQDC_MOST_EVENTS;
    --client->event_count;
    client->event_bytes -= strlen(client->taken_event);
    client->missed_events = 0;
    return client->taken_event;
}

int vqd_client_descriptor(const vqd_client* client)
{
    return client != NULL ? client->stream.socket : -1;
}
