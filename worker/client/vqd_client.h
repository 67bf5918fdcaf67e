/* SPDX-FileCopyrightText: VQD_API contributors
 * SPDX-License-Identifier: Apache-2.0
 */
/**
 * @file vqd_client.h
 * @brief Frames and settings of cameras that workers hold (vqd worker), for C11 and C++ programs. A program links the
 * static library vqd_client and nothing else: neither VQD_API nor libusb.
 *
 * @code
 * vqd_client_error error;
 * vqd_client* camera = vqd_client_connect("24061100000001", 5000, &error);
 * vqd_client_frame frame;
 * while (camera != NULL && vqd_client_next(camera, 1000, &frame, &error) == VQD_CLIENT_OK)
 *     use(frame.amplitude, frame.depth);
 * fprintf(stderr, "%s\n", error.text);
 * vqd_client_close(camera);
 * @endcode
 *
 * Conventions that hold for every function:
 * - A time-out is in milliseconds, and the call ends with it, give or take the scheduler. 0 takes what is there and
 * does not wait. A negative one is wrong usage.
 * - A client, and sets with all of their clients, belong to one thread at a time. Different clients are independent of
 * each other. The library starts no thread, handles no signal and has no global state.
 * - Results are ::VQD_CLIENT_OK or one of the negative numbers. `error`, which may be null, is filled unless all is
 * well.
 * - What a function points to belongs to the client, and is valid as long as that function says.
 * - Where a pointer is needed, a null one is wrong usage.
 */
#ifndef VQD_CLIENT_H
#define VQD_CLIENT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** What functions return. */
enum vqd_client_result {
    VQD_CLIENT_OK = 0,         /**< done */
    VQD_CLIENT_TIMEOUT = -1,   /**< nothing came in time; ask again */
    VQD_CLIENT_LOST = -2,      /**< the worker has gone: told once, and later calls connect again when it is back */
    VQD_CLIENT_NO_WORKER = -3, /**< vqd_client_connect(): no worker answered */
    VQD_CLIENT_WIRE = -4,      /**< the other end speaks another version of the wire, or is no worker; then as LOST */
    VQD_CLIENT_REFUSED = -5,   /**< the worker refused the request or failed; text and code are its own */
    VQD_CLIENT_USAGE = -6,     /**< an argument that makes no sense */
    VQD_CLIENT_SYSTEM = -7     /**< no memory */
};

/** Why a call failed. */
typedef struct vqd_client_error {
    int result;     /**< what the function returned, ::vqd_client_result */
    int code;       /**< of ::VQD_CLIENT_REFUSED: the exit code that vqd would have had; else 0 */
    char text[256]; /**< a sentence without a full stop, in UTF-8 */
} vqd_client_error;

/** A connection to one worker. */
typedef struct vqd_client vqd_client;

/** Bits of vqd_client_frame::flags. */
enum vqd_client_flag {
    VQD_CLIENT_FRAME_REOPENED = 1,  /**< the camera was opened again since the frame before */
    VQD_CLIENT_FRAME_CORRECTED = 2, /**< undistortion, FPPN, orthogonal or edges were at work on the host */
    VQD_CLIENT_FRAME_PROFILE = 4,   /**< values of the host's profile were in use */
    VQD_CLIENT_FRAME_CLOCK_STEP = 8 /**< the clock of real_time_ns was set since the frame before */
};

/** A frame. The planes are the client's, see the function that delivered it. */
typedef struct vqd_client_frame {
    char serial[16];           /**< of the camera */
    uint64_t session;          /**< differs with each start of the camera's process */
    uint64_t sequence;         /**< the frame's number in this session, from 1 */
    int64_t real_time_ns;      /**< CLOCK_REALTIME when the worker's read returned; somebody may set that clock */
    int64_t monotonic_time_ns; /**< CLOCK_MONOTONIC at that moment, the same for all cameras of a machine */
    int64_t stamp_ms;          /**< the library's FrameInfo.nTimeStamp: since the first frame */
    uint64_t count;            /**< the library's FrameInfo.nFrameCount */
    double temperature;        /**< of the sensor, in degrees Celsius */
    uint32_t flags;            /**< bits, ::vqd_client_flag */
    uint32_t dropped;          /**< an estimate: frames that the worker did not get since the one before */
    uint64_t missed;           /**< frames of this session that this client did not get since its last one */
    uint32_t width;            /**< in pixels */
    uint32_t height;           /**< in pixels */
    const uint16_t* amplitude; /**< width x height, rows from the top */
    const uint16_t* depth;     /**< the same, in millimetres; 0 is invalid */
} vqd_client_frame;

/** A worker that was found. */
typedef struct vqd_client_worker {
    char name[64];   /**< for vqd_client_connect(): as a rule the camera's serial number */
    char path[108];  /**< of its socket */
    char serial[16]; /**< of its camera; empty while that is not known */
    char state[256]; /**< as the worker calls it, such as "streaming"; or why there is none */
    int result;      /**< ::VQD_CLIENT_OK when it answered */
} vqd_client_worker;

/**
 * Finds the workers of this machine whose sockets are in the usual folders: /run/vqd, /run/vqd/serve,
 * $XDG_RUNTIME_DIR/vqd and /tmp/vqd-UID, or in $VQD_RUNTIME_DIR alone where that is set. Sockets on which nobody
 * listens are left out. Blocks until all have answered, or for the time-out.
 * @param workers     the caller's memory for `most` of them, in the order of their names
 * @param most        0 or more
 * @param timeout_ms  for all of them together; those that have not answered by then are in the list all the same
 * @param error       may be null
 * @return how many were found, which may be more than `most`; or a negative ::vqd_client_result
 */
int vqd_client_list(vqd_client_worker* workers, int most, int timeout_ms, vqd_client_error* error);

/**
 * Connects to a worker, and waits for one that is still starting. It need not have a camera yet.
 * @param name        a name from the list, or the path of a socket, which has a slash in it
 * @param timeout_ms  until the worker has said who it is
 * @param error       may be null
 * @return the client, which the caller ends with vqd_client_close(); null when it failed
 */
vqd_client* vqd_client_connect(const char* name, int timeout_ms, vqd_client_error* error);

/**
 * Ends the connection and frees all that the client has handed out. Does not block.
 * @param client  may be null
 */
void vqd_client_close(vqd_client* client);

/**
 * Waits for a frame that is newer than the one this client delivered last, and gets the newest there is. When the
 * worker has gone, that is told once as ::VQD_CLIENT_LOST; the next calls connect again, and go on with the new
 * session.
 *
 * A frame that was asked for by a call that timed out is delivered by the next call, however old it is by then: a
 * program that does not wait compares monotonic_time_ns with its clock, or calls vqd_client_latest().
 * @param client      a client that is in no sets
 * @param timeout_ms  0 or more
 * @param frame       filled in; its planes are the client's, and valid until its next frame or the close
 * @param error       may be null
 * @return a ::vqd_client_result
 */
int vqd_client_next(vqd_client* client, int timeout_ms, vqd_client_frame* frame, vqd_client_error* error);

/**
 * Gets the newest frame at this moment, even if it was delivered before. Waits when there is none yet. Otherwise as
 * vqd_client_next().
 * @param client      a client that is in no sets
 * @param timeout_ms  0 or more
 * @param frame       filled in; its planes are the client's, and valid until its next frame or the close
 * @param error       may be null
 * @return a ::vqd_client_result
 */
int vqd_client_latest(vqd_client* client, int timeout_ms, vqd_client_frame* frame, vqd_client_error* error);

/**
 * Sends a request and waits for the reply, also for a connection to send it by. After ::VQD_CLIENT_TIMEOUT and
 * ::VQD_CLIENT_LOST it is not known whether the worker did it.
 * @param client      also one that is in sets
 * @param request     a JSON object of at most 64 KiB, such as {"do": "state"}
 * @param timeout_ms  0 or more; a camera that is being opened again answers after some seconds
 * @param reply       may be null; points to the reply, a JSON object, which is the client's and valid until its next
 *                    request or the close; null when there is none
 * @param error       may be null
 * @return a ::vqd_client_result
 */
int vqd_client_request(vqd_client* client, const char* request, int timeout_ms, const char** reply,
                       vqd_client_error* error);

/**
 * Requests the values of settings, as vqd get shows them: the member "settings" of the reply.
 * @param client      also one that is in sets
 * @param names       a JSON array, such as ["offset", "depth-range"]; null for all settings
 * @param timeout_ms  0 or more
 * @param reply       as in vqd_client_request()
 * @param error       may be null
 * @return a ::vqd_client_result
 */
int vqd_client_get(vqd_client* client, const char* names, int timeout_ms, const char** reply, vqd_client_error* error);

/**
 * Changes settings of the camera's working registers, as vqd set does. The client's next frame may have been made
 * before: the member "after" of the reply has the session and the number of the last such frame.
 * @param client      also one that is in sets
 * @param settings    a JSON object, such as {"offset": 5, "depth-range": [300, 4000]}
 * @param timeout_ms  0 or more
 * @param reply       as in vqd_client_request()
 * @param error       may be null
 * @return a ::vqd_client_result
 */
int vqd_client_set(vqd_client* client, const char* settings, int timeout_ms, const char** reply,
                   vqd_client_error* error);

/**
 * Saves the present settings in the camera's EEPROM, which bears a limited number of writes.
 * @param client      also one that is in sets
 * @param timeout_ms  0 or more; saving takes about a second
 * @param reply       as in vqd_client_request()
 * @param error       may be null
 * @return a ::vqd_client_result
 */
int vqd_client_save(vqd_client* client, int timeout_ms, const char** reply, vqd_client_error* error);

/**
 * Takes in what has arrived, and connects again where that is due, without waiting. For programs that only want events
 * and states: all functions that take a time-out do this, too.
 * @param client  also one that is in sets
 * @param error   may be null
 * @return a ::vqd_client_result
 */
int vqd_client_update(vqd_client* client, vqd_client_error* error);

/**
 * What the worker said of itself when the connection began, as JSON, schema vqd.worker/1. How it is now tells the
 * request {"do": "state"}.
 * @param client  also one that is in sets
 * @return the client's memory, valid until its next call
 */
const char* vqd_client_state(const vqd_client* client);

/**
 * What the camera's frames are made with, as JSON, schema vqd.parameters/1. A new one comes after each change.
 * @param client  also one that is in sets
 * @return the client's memory, valid until its next call; null before the first one has come
 */
const char* vqd_client_parameters(const vqd_client* client);

/**
 * The oldest event that was not taken yet, as JSON, schema vqd.event/1. It does not look for new ones, see
 * vqd_client_update(). A client keeps 64 events, and 1 MiB.
 * @param client  also one that is in sets
 * @param missed  may be null; set to how many events were thrown away before this one because nobody took them
 * @return the client's memory, valid until the next call of this function or the close; null when there is no event
 */
const char* vqd_client_event(vqd_client* client, uint32_t* missed);

/**
 * The socket, for a poll() of the caller's. When it is readable, vqd_client_next() with the time-out 0, or
 * vqd_client_update(), takes in what has come. It is another one after each new connection.
 * @param client  also one that is in sets
 * @return the client's descriptor, only to be waited for; -1 while there is no connection
 */
int vqd_client_descriptor(const vqd_client* client);

/** Frames of several cameras that belong together. */
typedef struct vqd_client_sets vqd_client_sets;

/**
 * Begins to gather sets from these clients. Until the end they deliver no frames of their own.
 * @param clients  the array is copied; the clients stay the caller's, and must be closed after the sets
 * @param count    1 to 64, each client once
 * @param error    may be null
 * @return what the caller ends with vqd_client_sets_close(); null when it failed
 */
vqd_client_sets* vqd_client_sets_open(vqd_client* const* clients, int count, vqd_client_error* error);

/**
 * Frees the frames, not the clients. Does not block.
 * @param sets  may be null
 */
void vqd_client_sets_close(vqd_client_sets* sets);

/**
 * Waits for the next set: one frame of each camera. Of the frames that wait longest, one a camera, the one that was
 * taken last leads, and the others are the nearest to it in monotonic_time_ns. No frame is in two sets. A set is
 * delivered as soon as no frame that is still to come can be nearer. Frames that were taken more than one and a half
 * frame intervals before the call are left out, so that a slow caller gets the present.
 *
 * Cameras run freely: the skew of two is up to half a frame interval, that of more up to a whole one. When a worker has
 * gone, that is told once, with its name; sets come again when it is back.
 * @param sets        of vqd_client_sets_open()
 * @param timeout_ms  0 or more
 * @param frames      filled in, one for each client in their order; the planes are valid until the next set or the
 * close
 * @param skew_ns     may be null; the time from the earliest frame of the set to the latest
 * @param error       may be null
 * @return a ::vqd_client_result
 */
int vqd_client_sets_next(vqd_client_sets* sets, int timeout_ms, vqd_client_frame* frames, int64_t* skew_ns,
                         vqd_client_error* error);

#ifdef __cplusplus
}
#endif

#endif
