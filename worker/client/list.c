// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The workers of this machine: every socket in the usual folders is asked who is behind it.
#include <dirent.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "worker/client/client.h"
#include "worker/client/json_member.h"
#include "worker/client/sockets.h"

// The sockets on which somebody listens. A name in an earlier folder hides the same one in a later folder, as it does
// for vqd_client_connect().
typedef struct found {
    vqd_client_worker workers[VQDC_MOST_CLIENTS];
    vqd_client* clients[VQDC_MOST_CLIENTS]; // null when it is known how it went
    int count;
} found;

// "24061100000001.sock" into the name before the dot.
static int name_of(const char* file, char* name, size_t size)
{
    static const char kEnd[] = ".sock";
    const size_t length = strlen(file), end = sizeof kEnd - 1;
    return length > end && strcmp(file + length - end, kEnd) == 0 &&
           (size_t)snprintf(name, size, "%.*s", (int)(length - end), file) < size;
}

static int is_known(const found* all, const char* name)
{
    for (int i = 0; i < all->count; ++i)
        if (strcmp(all->workers[i].name, name) == 0)
            return 1;
    return 0;
}

static void fail_worker(vqd_client_worker* worker, int result, const char* why)
{
    worker->result = result;
    snprintf(worker->state, sizeof worker->state, "%s", why);
    worker->state[vqdc_whole_characters(worker->state, strlen(worker->state))] = '\0';
}

static void add(found* all, const vqd_client_worker* candidate)
{
    const int socket = vqdc_connect(candidate->path);
    if (socket < 0 && errno != EACCES && errno != EAGAIN)
        return;
    vqd_client_worker* const worker = &all->workers[all->count];
    vqd_client** const client = &all->clients[all->count++];
    *worker = *candidate;
    *client = socket >= 0 ? vqdc_client_new(worker->path) : NULL;
    if (*client != NULL)
        vqdc_adopt(*client, socket);
    else
        fail_worker(worker, VQD_CLIENT_NO_WORKER, strerror(socket < 0 ? errno : ENOMEM));
    if (*client == NULL && socket >= 0)
        close(socket);
}

static void look_into(const char* folder, found* all)
{
    DIR* const directory = opendir(folder);
    if (directory == NULL)
        return;
    const struct dirent* entry;
    while (all->count < VQDC_MOST_CLIENTS && (entry = readdir(directory)) != NULL) {
        vqd_client_worker worker = {0};
        if (name_of(entry->d_name, worker.name, sizeof worker.name) && !is_known(all, worker.name) &&
            (size_t)snprintf(worker.path, sizeof worker.path, "%s/%s", folder, entry->d_name) < sizeof worker.path)
            add(all, &worker);
    }
    closedir(directory);
}

// Ends with a client that has said who it is, or will not. Returns how many are still awaited.
static int ask(found* all, int time_is_up)
{
    int awaited = 0;
    for (int i = 0; i < all->count; ++i) {
        vqd_client* const client = all->clients[i];
        vqd_client_worker* const worker = &all->workers[i];
        if (client == NULL)
            continue;
        vqd_client_error error;
        const int result = vqdc_advance(client, &error);
        if (result == VQD_CLIENT_OK && !client->greeted && !time_is_up) {
            ++awaited;
            continue;
        }
        if (result != VQD_CLIENT_OK) {
            fail_worker(worker, result, error.text);
        } else if (!client->greeted) {
            fail_worker(worker, VQD_CLIENT_TIMEOUT, "does not answer");
        } else {
            const char* const state = vqd_client_state(client);
            const vqdc_json_value camera = vqdc_json_member(state, "camera"); // null while there is none
            vqdc_json_string(vqdc_json_member(camera.text != NULL ? camera.text : "", "serial"), worker->serial,
                             sizeof worker->serial);
            vqdc_json_string(vqdc_json_member(state, "state"), worker->state, sizeof worker->state);
        }
        vqd_client_close(client);
        all->clients[i] = NULL;
    }
    return awaited;
}

static void await(found* all, int64_t deadline)
{
    vqd_client* clients[VQDC_MOST_CLIENTS];
    int count = 0;
    for (int i = 0; i < all->count; ++i)
        if (all->clients[i] != NULL)
            clients[count++] = all->clients[i];
    vqdc_wait(clients, count, deadline);
}

static int by_name(const void* one, const void* other)
{
    return strcmp(((const vqd_client_worker*)one)->name, ((const vqd_client_worker*)other)->name);
}

int vqd_client_list(vqd_client_worker* workers, int most, int timeout_ms, vqd_client_error* error)
{
    if (most < 0 || (workers == NULL && most > 0) || timeout_ms < 0)
        return vqdc_fail(error, VQD_CLIENT_USAGE, "memory for workers and a time-out of 0 or more are needed");
    found* const all = calloc(1, sizeof *all);
    if (all == NULL)
        return vqdc_fail(error, VQD_CLIENT_SYSTEM, "there is no memory for a list");
    const int64_t deadline = vqdc_deadline(timeout_ms);
    char folder[VQDC_PATH_BYTES];
    for (int i = 0; i < VQDC_FOLDERS; ++i)
        if (vqdc_folder(i, folder, sizeof folder))
            look_into(folder, all);
    while (ask(all, vqdc_now() >= deadline) > 0)
        await(all, deadline);
    const int count = all->count;
    qsort(all->workers, (size_t)count, sizeof all->workers[0], by_name);
    if (most > 0)
        memcpy(workers, all->workers, (size_t)(count < most ? count : most) * sizeof *workers);
    free(all);
    return count;
}
