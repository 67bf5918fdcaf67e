// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Sets: the last few frames of each client, of which the nearest are delivered.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "worker/client/client.h"
#include "worker/client/nearest.h"

static const int64_t kUsualInterval = 33333333;     // of a camera that has not shown its own yet
static const int64_t kLongestInterval = 1000000000; // a longer one is an outage

typedef struct camera {
    vqd_client* client;
    vqdc_frame kept[VQDC_KEPT]; // the first `times.count` are there
    vqdc_frame delivered;
    vqdc_times times;
    uint64_t last_session, last_sequence; // of the newest kept frame, even if it is no longer there
    int64_t last_time;
} camera;

struct vqd_client_sets {
    int count;
    camera cameras[];
};

static int refuse(vqd_client* const* clients, int count, vqd_client_error* error)
{
    if (clients == NULL || count < 1 || count > VQDC_MOST_CLIENTS)
        return vqdc_fail(error, VQD_CLIENT_USAGE, "a set has 1 to %d clients", VQDC_MOST_CLIENTS);
    for (int i = 0; i < count; ++i) {
        if (clients[i] == NULL)
            return vqdc_fail(error, VQD_CLIENT_USAGE, "client %d of the set is missing", i);
        if (clients[i]->in_sets)
            return vqdc_fail(error, VQD_CLIENT_USAGE, "%.150s delivers its frames in other sets", clients[i]->name);
        for (int k = 0; k < i; ++k)
            if (clients[k] == clients[i])
                return vqdc_fail(error, VQD_CLIENT_USAGE, "%.150s is in the set twice", clients[i]->name);
    }
    return VQD_CLIENT_OK;
}

vqd_client_sets* vqd_client_sets_open(vqd_client* const* clients, int count, vqd_client_error* error)
{
    if (refuse(clients, count, error) != VQD_CLIENT_OK)
        return NULL;
    vqd_client_sets* const sets = calloc(1, sizeof *sets + (size_t)count * sizeof sets->cameras[0]);
    if (sets == NULL) {
        vqdc_fail(error, VQD_CLIENT_SYSTEM, "there is no memory for sets");
        return NULL;
    }
    sets->count = count;
    for (int i = 0; i < count; ++i) {
        sets->cameras[i].client = clients[i];
        clients[i]->in_sets = 1;
    }
    return sets;
}

void vqd_client_sets_close(vqd_client_sets* sets)
{
    if (sets == NULL)
        return;
    for (int i = 0; i < sets->count; ++i) {
        camera* const cam = &sets->cameras[i];
        cam->client->in_sets = 0;
        free(cam->delivered.message.bytes);
        for (int k = 0; k < VQDC_KEPT; ++k)
            free(cam->kept[k].message.bytes);
    }
    free(sets);
}

// Forgets the oldest kept frames; their memory stays for those to come.
static void forget(camera* cam, int frames)
{
    for (; frames > 0 && cam->times.count > 0; --frames) {
        const vqdc_frame oldest = cam->kept[0];
        memmove(&cam->kept[0], &cam->kept[1], (VQDC_KEPT - 1) * sizeof cam->kept[0]);
        memmove(&cam->times.times[0], &cam->times.times[1], (VQDC_KEPT - 1) * sizeof cam->times.times[0]);
        cam->kept[VQDC_KEPT - 1] = oldest;
        --cam->times.count;
    }
}

static void forget_older(camera* cam, int64_t moment)
{
    const int64_t interval = cam->times.interval > kUsualInterval ? cam->times.interval : kUsualInterval;
    while (cam->times.count > 0 && cam->times.times[0] < moment - interval - interval / 2)
        forget(cam, 1);
}

// The shortest interval counts, but one that is longer for a while is believed in the end.
static void learn_interval(camera* cam, const vqd_wire_frame* header)
{
    if (header->session == cam->last_session && header->sequence > cam->last_sequence) {
        const uint64_t frames = header->sequence - cam->last_sequence;
        const int64_t passed = header->monotonic_time_ns - cam->last_time;
        const int64_t interval = passed > 0 ? (int64_t)((uint64_t)passed / frames) : 0;
        const int64_t known = cam->times.interval;
        if (interval <= kLongestInterval)
            cam->times.interval = known == 0 || interval < known ? interval : known + (interval - known) / 16;
    }
    cam->last_session = header->session;
    cam->last_sequence = header->sequence;
    cam->last_time = header->monotonic_time_ns;
}

static void keep(camera* cam)
{
    if (cam->times.count == VQDC_KEPT)
        forget(cam, 1);
    vqdc_frame* const frame = &cam->kept[cam->times.count];
    vqdc_take(cam->client, frame);
    const vqd_wire_frame* const header = vqdc_header(frame);
    const int known = header->session == cam->last_session && header->sequence <= cam->last_sequence;
    const int in_order = cam->times.count == 0 || header->monotonic_time_ns >= cam->times.times[cam->times.count - 1];
    learn_interval(cam, header);
    if (known) // a new connection to the same session begins with the newest frame
        return;
    if (!in_order)
        forget(cam, cam->times.count);
    cam->times.times[cam->times.count++] = header->monotonic_time_ns;
}

// Takes what has come from a camera, and asks for more.
static int gather(camera* cam, vqd_client_error* error)
{
    vqd_client* const client = cam->client;
    for (int i = 0; i < VQDC_KEPT; ++i) {
        int result = vqdc_advance(client, error);
        const int came = client->has_arrived;
        if (result == VQD_CLIENT_OK && came)
            keep(cam);
        if (result == VQD_CLIENT_OK)
            result = vqdc_pull(client, client->in_session ? client->last_sequence : 0, error);
        if (result != VQD_CLIENT_OK || !came)
            return result;
    }
    return VQD_CLIENT_OK;
}

static int choose(const vqd_client_sets* sets, int* chosen, int64_t* skew_ns, int64_t* until)
{
    vqdc_times times[VQDC_MOST_CLIENTS];
    for (int i = 0; i < sets->count; ++i)
        times[i] = sets->cameras[i].times;
    if (!vqdc_nearest(times, sets->count, vqdc_now(), chosen, until))
        return 0;
    if (skew_ns != NULL)
        *skew_ns = vqdc_skew(times, sets->count, chosen);
    return 1;
}

static void deliver(camera* cam, int chosen, vqd_client_frame* frame)
{
    const vqdc_frame old = cam->delivered;
    cam->delivered = cam->kept[chosen];
    cam->kept[chosen] = old;
    forget(cam, chosen + 1);
    vqdc_show(&cam->delivered, frame);
}

static int time_is_up(const vqd_client_sets* sets, int timeout_ms, vqd_client_error* error)
{
    for (int i = 0; i < sets->count; ++i) {
        const vqd_client* const client = sets->cameras[i].client;
        if (client->stream.socket < 0)
            return vqdc_fail(error, VQD_CLIENT_TIMEOUT, "%s", client->why);
        if (sets->cameras[i].times.count == 0)
            return vqdc_fail(error, VQD_CLIENT_TIMEOUT, "%.150s: no frame came within %d ms", client->name, timeout_ms);
    }
    return vqdc_fail(error, VQD_CLIENT_TIMEOUT, "no set came within %d ms", timeout_ms);
}

int vqd_client_sets_next(vqd_client_sets* sets, int timeout_ms, vqd_client_frame* frames, int64_t* skew_ns,
                         vqd_client_error* error)
{
    if (sets == NULL || frames == NULL || timeout_ms < 0)
        return vqdc_fail(error, VQD_CLIENT_USAGE, "sets, frames and a time-out of 0 or more are needed");
    const int64_t asked = vqdc_now(), deadline = vqdc_deadline(timeout_ms);
    vqd_client* clients[VQDC_MOST_CLIENTS];
    for (int i = 0; i < sets->count; ++i)
        clients[i] = sets->cameras[i].client;
    for (;;) {
        for (int i = 0; i < sets->count; ++i) {
            const int result = gather(&sets->cameras[i], error);
            if (result != VQD_CLIENT_OK)
                return result;
            forget_older(&sets->cameras[i], asked);
        }
        int chosen[VQDC_MOST_CLIENTS];
        int64_t until;
        if (choose(sets, chosen, skew_ns, &until)) {
            for (int i = 0; i < sets->count; ++i)
                deliver(&sets->cameras[i], chosen[i], &frames[i]);
            return VQD_CLIENT_OK;
        }
        if (vqdc_now() >= deadline)
            return time_is_up(sets, timeout_ms, error);
        vqdc_wait(clients, sets->count, until < deadline ? until : deadline);
    }
}
