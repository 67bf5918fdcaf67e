/* SPDX-FileCopyrightText: VQD_API contributors
 * SPDX-License-Identifier: Apache-2.0
 *
 * Frames and settings of cameras that workers hold (vqd worker), for C11 and C++ programs. A program links the static
 * library vqd_client and nothing else: neither VQD_API nor libusb.
 *
 * Time: every wait has a time-out in milliseconds and ends with it, give or take the scheduler. 0 takes what is there
 * and does not wait. Negative time-outs are wrong usage.
 *
 * Threads: a client, and a set with all of its clients, belong to one thread at a time. Different clients are
 * independent of each other. The library starts no thread, handles no signal and has no global state.
 *
 * Results: functions return VQD_CLIENT_OK or one of the negative numbers, and fill `error`, which may be null, unless
 * all is well. Required pointers that are null are wrong usage. */
#ifndef VQD_CLIENT_H
#define VQD_CLIENT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
    VQD_CLIENT_OK = 0,
    VQD_CLIENT_TIMEOUT = -1,   /* nothing came in time; ask again */
    VQD_CLIENT_LOST = -2,      /* the worker has gone; told once, and later calls connect again as soon as it is back */
    VQD_CLIENT_NO_WORKER = -3, /* vqd_client_connect(): no worker answered */
    VQD_CLIENT_WIRE = -4,      /* the other end speaks another version of the wire, or something else; then as LOST */
    VQD_CLIENT_REFUSED = -5,   /* the worker refused the request, or could not do it; `text` and `code` are its own */
    VQD_CLIENT_USAGE = -6,     /* an argument that makes no sense */
    VQD_CLIENT_SYSTEM = -7     /* no memory, or no more descriptors */
};

typedef struct vqd_client_error {
    int result;     /* what the function returned */
    int code;       /* of REFUSED: the exit code that vqd would have had; else 0 */
    char text[256]; /* a sentence without a full stop, UTF-8 */
} vqd_client_error;

/* A connection to one worker. */
typedef struct vqd_client vqd_client;

enum {
    VQD_CLIENT_FRAME_REOPENED = 1,  /* the camera was opened again since the frame before */
    VQD_CLIENT_FRAME_CORRECTED = 2, /* undistortion, FPPN, orthogonal or edges were at work on the host */
    VQD_CLIENT_FRAME_PROFILE = 4,   /* values of the host's profile were in use */
    VQD_CLIENT_FRAME_CLOCK_STEP = 8 /* the clock of real_time_ns was set since the frame before */
};

typedef struct vqd_client_frame {
    char serial[16];           /* of the camera */
    uint64_t session;          /* differs with each start of the worker */
    uint64_t sequence;         /* of the frame in this session, from 1 */
    int64_t real_time_ns;      /* CLOCK_REALTIME when the worker's read returned; it may be set, and then jumps */
    int64_t monotonic_time_ns; /* CLOCK_MONOTONIC at that moment, the same for all cameras of a machine */
    int64_t stamp_ms;          /* the library's nTimeStamp: since the first frame */
    uint64_t count;            /* the library's nFrameCount */
    double temperature;        /* of the sensor, in degrees Celsius */
    uint32_t flags;            /* VQD_CLIENT_FRAME_... */
    uint32_t dropped;          /* an estimate: frames that the worker did not get since the one before */
    uint64_t missed;           /* frames of this session that this client did not ask for in time since its last one */
    uint32_t width, height;    /* in pixels */
    const uint16_t* amplitude; /* width x height, rows from the top; the client's memory, see the functions */
    const uint16_t* depth;     /* the same, in mm; 0 is invalid */
} vqd_client_frame;

/* A worker that was found. */
typedef struct vqd_client_worker {
    char name[64];   /* what vqd_client_connect() takes: as a rule the camera's serial number */
    char path[108];  /* of its socket */
    char serial[16]; /* of its camera; empty while it is not known */
    char state[256]; /* as the worker calls it, such as "streaming", or why it does not answer */
    int result;      /* VQD_CLIENT_OK when it answered */
} vqd_client_worker;

/* Finds the workers of this machine whose sockets are in the usual folders: /run/vqd, $XDG_RUNTIME_DIR/vqd and
 * /tmp/vqd-UID, or in $VQD_RUNTIME_DIR alone where that is set. Sockets on which nobody listens are left out.
 * @param workers     the caller's memory for `most` of them, in the order of their names
 * @param timeout_ms  for all of them together; those that have not answered by then are in the list all the same
 * @return how many were found, which may be more than `most`; or a negative result */
int vqd_client_list(vqd_client_worker* workers, int most, int timeout_ms, vqd_client_error* error);

/* Connects to a worker, and waits for one that is still starting.
 * @param name        a name from the list, or the path of a socket, which has a slash in it
 * @param timeout_ms  until the worker has said who it is
 * @return the client, which the caller ends with vqd_client_close(); null when it failed */
vqd_client* vqd_client_connect(const char* name, int timeout_ms, vqd_client_error* error);

/* Ends the connection and frees all that the client has handed out. Null is allowed. */
void vqd_client_close(vqd_client* client);

/* Waits for a frame that is newer than the one this client delivered last, and gets the newest there is. When the
 * worker has gone, it says so once as LOST; the next calls connect again, and go on with the new session.
 * A frame that was asked for by a call that timed out is delivered by the next one, however old it is by then:
 * a program that does not wait compares monotonic_time_ns with its clock, or calls vqd_client_latest().
 * @param frame  filled in; its planes are valid until the next call that delivers a frame or a set, or the close */
int vqd_client_next(vqd_client* client, int timeout_ms, vqd_client_frame* frame, vqd_client_error* error);

/* The newest frame at this moment, even if it was delivered before. Waits when there is none yet. Otherwise as
 * vqd_client_next(). */
int vqd_client_latest(vqd_client* client, int timeout_ms, vqd_client_frame* frame, vqd_client_error* error);

/* Sends a request and waits for the reply. After TIMEOUT and LOST it is not known whether the worker did it.
 * @param request  a JSON object, such as {"do": "state"}
 * @param reply    may be null; points to the reply, a JSON object, which is the client's and valid until its next
 *                 request or the close */
int vqd_client_request(vqd_client* client, const char* request, int timeout_ms, const char** reply,
                       vqd_client_error* error);

/* Requests the values of settings, as vqd get shows them.
 * @param names  a JSON array, such as ["integration", "depth-range"]; null for all settings */
int vqd_client_get(vqd_client* client, const char* names, int timeout_ms, const char** reply, vqd_client_error* error);

/* Changes settings, as vqd set does; frames after the reply have them.
 * @param settings  a JSON object, such as {"integration": 500, "depth-range": [300, 4000]} */
int vqd_client_set(vqd_client* client, const char* settings, int timeout_ms, const char** reply,
                   vqd_client_error* error);

/* Saves the present settings in the camera's EEPROM, which bears a limited number of writes. */
int vqd_client_save(vqd_client* client, int timeout_ms, const char** reply, vqd_client_error* error);

/* Takes in what has arrived, and connects again where that is due, without waiting. For programs that only want events
 * and states: the other functions do this, too. Returns LOST or WIRE when the worker has gone. */
int vqd_client_update(vqd_client* client, vqd_client_error* error);

/* What the worker said last of itself, of its camera's settings and lens: JSON, schemas vqd.worker/1 and
 * vqd.parameters/1. The client's memory, valid until the client's next call. Null before the first one came. */
const char* vqd_client_state(const vqd_client* client);
const char* vqd_client_parameters(const vqd_client* client);

/* The oldest event that was not taken yet, JSON, schema vqd.event/1; null when there is none. It does not look for new
 * ones: they come in with the other calls. A client keeps 64.
 * @param missed  may be null; set to how many were thrown away before this one, because nobody took them
 * @return the client's memory, valid until the next call of this function or the close */
const char* vqd_client_event(vqd_client* client, uint32_t* missed);

/* For a poll() of the caller's: readable when something has arrived, for which vqd_client_next() with the time-out 0 or
 * vqd_client_update() is then to be called. It changes with each new connection; -1 while there is none. */
int vqd_client_descriptor(const vqd_client* client);

/* Frames of several cameras that belong together. */
typedef struct vqd_client_sets vqd_client_sets;

/* Gathers sets from these clients. While it exists, they deliver no frames of their own; their other functions work.
 * @param clients  the array is copied, the clients stay the caller's and must outlive the object
 * @param count    1 to 64, each client once
 * @return what the caller ends with vqd_client_sets_close(); null when it failed */
vqd_client_sets* vqd_client_sets_open(vqd_client* const* clients, int count, vqd_client_error* error);

/* Frees the frames, not the clients. Null is allowed. */
void vqd_client_sets_close(vqd_client_sets* sets);

/* Waits for the next set: one frame of each camera, nearest in monotonic_time_ns to the one that came last of those
 * waiting. No frame is in two sets. A set is delivered as soon as no frame that is still to come can be nearer. Frames
 * that were taken more than one and a half frame intervals before the call are not in it, so a slow caller gets the
 * present. Cameras run freely: the skew of two is up to half a frame interval, of more up to a whole one.
 * When a worker has gone, the call says so once and names it; sets come again when it is back.
 * @param frames   filled in, one for each client in their order; valid until the next call that returns a set
 * @param skew_ns  may be null; from the earliest frame of the set to the latest */
int vqd_client_sets_next(vqd_client_sets* sets, int timeout_ms, vqd_client_frame* frames, int64_t* skew_ns,
                         vqd_client_error* error);

#ifdef __cplusplus
}
#endif

#endif
