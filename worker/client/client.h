// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// What the parts of the client share: a connection that is made again when it is lost, and what has come by it.
#pragma once

#include "worker/client/stream.h"
#include "worker/client/vqd_client.h"

enum { VQDC_MOST_EVENTS = 64, VQDC_MOST_CLIENTS = 64 };

// A frame as it came: the header of the wire, then the planes.
typedef struct vqdc_frame {
    vqdc_buffer message;
    uint64_t missed;
} vqdc_frame;

struct vqd_client {
    char* name;
    vqdc_stream stream;
    int greeted;            // the worker has said who it is
    int64_t next_attempt;   // to connect, CLOCK_MONOTONIC in ns
    char why[256];          // the last attempt failed
    char farewell[200];     // why the worker is about to end the connection; as a rule it does not say
    uint32_t last_request;  // number of a request or pull
    uint32_t pull, awaited; // the request numbers whose answers are to come; 0: none
    uint64_t pull_after;

    vqdc_frame arrived, held; // the answer to the last pull; what the caller got last
    int has_arrived, has_held;
    int in_session; // last_session is that of this connection
    uint64_t last_session, last_sequence;

    vqdc_buffer state, parameters, reply; // texts; has_... says whether there is one
    int has_state, has_parameters, has_reply;
    char* events[VQDC_MOST_EVENTS]; // a ring, the oldest at first_event
    unsigned first_event, event_count;
    size_t event_bytes;
    uint32_t missed_events;
    char* taken_event;

    int in_sets; // a vqd_client_sets has the frames
};

int64_t vqdc_now(void); // CLOCK_MONOTONIC in ns
int64_t vqdc_deadline(int timeout_ms);

// Fills `error`, if there is one, and returns `result`.
int vqdc_fail(vqd_client_error* error, int result, const char* format, ...) __attribute__((format(printf, 3, 4)));

// A client that is not connected yet; null when there is no memory.
vqd_client* vqdc_client_new(const char* name);

// Goes on with a socket that is connected already, as after a connection of its own.
void vqdc_adopt(vqd_client* client, int socket);

// Connects if that is due, sends and receives, without waiting. A failure is told once; then there is no connection.
int vqdc_advance(vqd_client* client, vqd_client_error* error);

// Ends the connection and fails; a new one is made as soon as that is due.
int vqdc_lose(vqd_client* client, int result, vqd_client_error* error, const char* what);

// Asks for a frame after this one, unless one was asked for already, or has arrived. Needs a connection.
int vqdc_pull(vqd_client* client, uint64_t after, vqd_client_error* error);

// The frame that has arrived changes places with what is in `frame`.
void vqdc_take(vqd_client* client, vqdc_frame* frame);
void vqdc_show(const vqdc_frame* frame, vqd_client_frame* into);
const vqd_wire_frame* vqdc_header(const vqdc_frame* frame);

// Waits until one of the clients has something to do, or until this moment.
void vqdc_wait(vqd_client* const* clients, int count, int64_t until);
