// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Requests and their replies.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "worker/client/client.h"
#include "worker/client/json_member.h"

// The reply that has come, as a result. What is no reply ends the connection, since what follows cannot be trusted
// either.
static int judge(vqd_client* client, const char** reply, vqd_client_error* error)
{
    const char* const text = (const char*)client->reply.bytes;
    const vqdc_json_value ok = vqdc_json_member(text, "ok");
    if (reply != NULL)
        *reply = text;
    if (vqdc_json_is(ok, "true"))
        return VQD_CLIENT_OK;
    char sentence[sizeof error->text];
    vqdc_json_string(vqdc_json_member(text, "error"), sentence, sizeof sentence);
    if (!vqdc_json_is(ok, "false") || *sentence == '\0')
        return vqdc_lose(client, VQD_CLIENT_WIRE, error, "a reply is not what a worker sends");
    vqdc_fail(error, VQD_CLIENT_REFUSED, "%s", sentence);
    if (error != NULL)
        error->code = vqdc_json_int(vqdc_json_member(text, "code"), 0);
    return VQD_CLIENT_REFUSED;
}

// Sends the request as soon as there is a connection, and those before it are sent.
static int try_to_send(vqd_client* client, const char* request, size_t size, vqd_client_error* error)
{
    if (client->stream.socket < 0 || vqdc_stream_sending(&client->stream))
        return VQD_CLIENT_OK;
    if (++client->last_request == 0)
        client->last_request = 1;
    if (!vqdc_stream_send(&client->stream, VQD_WIRE_REQUEST, client->last_request, request, size))
        return vqdc_fail(error, VQD_CLIENT_SYSTEM, "there is no memory for a message");
    client->awaited = client->last_request;
    return VQD_CLIENT_OK;
}

int vqd_client_request(vqd_client* client, const char* request, int timeout_ms, const char** reply,
                       vqd_client_error* error)
{
    if (reply != NULL)
        *reply = NULL;
    if (client == NULL || request == NULL || timeout_ms < 0)
        return vqdc_fail(error, VQD_CLIENT_USAGE, "a client, a request and a time-out of 0 or more are needed");
    const size_t size = strlen(request);
    if (size > VQD_WIRE_MOST_REQUEST)
        return vqdc_fail(error, VQD_CLIENT_USAGE, "a request has at most %u bytes", VQD_WIRE_MOST_REQUEST);
    const int64_t deadline = vqdc_deadline(timeout_ms);
    int sent = 0;
    client->has_reply = 0;
    for (;;) {
        int result = vqdc_advance(client, error);
        if (result == VQD_CLIENT_OK && !sent)
            result = try_to_send(client, request, size, error);
        if (result != VQD_CLIENT_OK)
            return result;
        sent = sent || client->awaited != 0;
        if (client->has_reply)
            return judge(client, reply, error);
        if (vqdc_now() >= deadline)
            break;
        vqdc_wait(&client, 1, deadline);
    }
    client->awaited = 0;
    if (client->stream.socket < 0)
        return vqdc_fail(error, VQD_CLIENT_TIMEOUT, "%s", client->why);
    return vqdc_fail(error, VQD_CLIENT_TIMEOUT, "%.150s: no reply came within %d ms", client->name, timeout_ms);
}

// The request `start`, `value` and a closing bracket. The value must begin with `bracket`.
static int request_with(vqd_client* client, const char* start, const char* value, char bracket, int timeout_ms,
                        const char** reply, vqd_client_error* error)
{
    if (reply != NULL)
        *reply = NULL;
    if (value == NULL || value[strspn(value, " \t\r\n")] != bracket)
        return vqdc_fail(error, VQD_CLIENT_USAGE, "the text must be JSON that begins with %c", bracket);
    const size_t size = strlen(start) + strlen(value) + 2;
    char* const request = malloc(size);
    if (request == NULL)
        return vqdc_fail(error, VQD_CLIENT_SYSTEM, "there is no memory for a request");
    snprintf(request, size, "%s%s}", start, value);
    const int result = vqd_client_request(client, request, timeout_ms, reply, error);
    free(request);
    return result;
}

int vqd_client_get(vqd_client* client, const char* names, int timeout_ms, const char** reply, vqd_client_error* error)
{
    if (names == NULL)
        return vqd_client_request(client, "{\"do\":\"get\"}", timeout_ms, reply, error);
    return request_with(client, "{\"do\":\"get\",\"names\":", names, '[', timeout_ms, reply, error);
}

int vqd_client_set(vqd_client* client, const char* settings, int timeout_ms, const char** reply,
                   vqd_client_error* error)
{
    return request_with(client, "{\"do\":\"set\",\"settings\":", settings, '{', timeout_ms, reply, error);
}

int vqd_client_save(vqd_client* client, int timeout_ms, const char** reply, vqd_client_error* error)
{
    return vqd_client_request(client, "{\"do\":\"save\"}", timeout_ms, reply, error);
}
