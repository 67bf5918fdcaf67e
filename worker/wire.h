/* SPDX-FileCopyrightText: VQD_API contributors
 * SPDX-License-Identifier: Apache-2.0
 *
 * What a camera's worker and those who want its frames say to each other: the same bytes on a socket, in a pipe and in
 * the body of an HTTP answer. Numbers are little-endian. A message is a prefix and `size` more bytes.
 *
 * The worker speaks first: a VQD_WIRE_STATE. It then sends a frame for each VQD_WIRE_PULL, a VQD_WIRE_REPLY for each
 * VQD_WIRE_REQUEST, and events and parameters when there are any. A frame is sent only to who has asked for one, so a
 * slow reader gets the newest frame whenever it asks, and never a queue of old ones. A pull takes the place of one that
 * has not been answered yet. A pull that cannot be answered gets a VQD_WIRE_REPLY with its number.
 *
 * A connection lasts as long as the session. While the worker has no camera it takes connections, says in its state why
 * it has none, and refuses requests; pulls wait. It ends these connections when frames come, and the camera's own ones
 * when the camera is gone. So a reader connects again whenever a connection ends. Bytes that are no message, or a
 * version that this end does not speak, are answered by a VQD_WIRE_REPLY with the number 0 and the end of the
 * connection; the prefix is the same in all versions. */
#ifndef VQD_WIRE_H
#define VQD_WIRE_H

#include <stdint.h>

#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "The wire's records are laid out as a little-endian machine has them in memory."
#endif

#define VQD_WIRE_MAGIC "VQDW"
#define VQD_WIRE_VERSION 1 /* readers refuse every other one */

/* The most bytes after the prefix: of what a worker takes, and of what it sends. */
#define VQD_WIRE_MOST_REQUEST (64u << 10)
#define VQD_WIRE_MOST_MESSAGE (1u << 20)

enum {
    VQD_WIRE_STATE = 1,      /* JSON, schema vqd.worker/1: which camera, and how it is */
    VQD_WIRE_FRAME = 2,      /* vqd_wire_frame, then both planes */
    VQD_WIRE_PARAMETERS = 3, /* JSON, schema vqd.parameters/1: settings, lens, image; after each change */
    VQD_WIRE_EVENT = 4,      /* JSON, schema vqd.event/1: lost, found, clock step, ... */
    VQD_WIRE_REQUEST = 5,    /* JSON: {"do": "set", ...}, to the worker */
    VQD_WIRE_REPLY = 6,      /* JSON: {"ok": true, ...} or {"ok": false, "error": "a sentence", "code": 2} */
    VQD_WIRE_PULL = 7        /* vqd_wire_pull, to the worker */
};

typedef struct vqd_wire_prefix {
    char magic[4]; /* VQD_WIRE_MAGIC without its final zero */
    uint16_t version;
    uint16_t kind;
    uint32_t size;    /* bytes that follow */
    uint32_t request; /* the number of the request or pull that this answers, else 0 */
} vqd_wire_prefix;

enum {
    VQD_WIRE_REOPENED = 1,   /* the camera was opened again since the frame before */
    VQD_WIRE_CORRECTED = 2,  /* undistortion, FPPN, orthogonal or edges were at work on the host */
    VQD_WIRE_PROFILE = 4,    /* values of the host's profile were in use */
    VQD_WIRE_CLOCK_STEP = 8, /* the clock of real_time_ns was set since the frame before */
    VQD_WIRE_PACKED = 16     /* the planes are packed */
};

typedef struct vqd_wire_frame {
    char serial[16];           /* 14 digits, zeros */
    uint64_t session;          /* differs with each start of the worker */
    uint64_t sequence;         /* 1 for the first frame of a session; what a reader does not get leaves a gap */
    int64_t real_time_ns;      /* CLOCK_REALTIME when the read returned */
    int64_t monotonic_time_ns; /* CLOCK_MONOTONIC at the same moment; the same for all processes of a machine */
    int64_t stamp_ms;          /* the library's nTimeStamp and nFrameCount */
    uint64_t count;
    double temperature; /* of the sensor, in degrees Celsius */
    uint32_t flags;
    uint32_t dropped; /* an estimate: frames that the worker did not get between the one before and this one */
    uint16_t width, height;
    uint32_t plane_bytes; /* that follow: 2 * width * height * 2, or fewer when packed */
    uint64_t reserved;    /* 0 */
} vqd_wire_frame;         /* then the amplitude plane and the depth plane, rows from the top, 16 bits a pixel */

typedef struct vqd_wire_pull {
    uint64_t after; /* the next frame with a greater sequence number, at once if there is one */
    uint32_t flags; /* VQD_WIRE_PACKED, or 0 */
    uint32_t reserved;
} vqd_wire_pull;

#ifdef __cplusplus
static_assert(sizeof(vqd_wire_prefix) == 16 && sizeof(vqd_wire_frame) == 96 && sizeof(vqd_wire_pull) == 16);
#else
_Static_assert(sizeof(vqd_wire_prefix) == 16 && sizeof(vqd_wire_frame) == 96 && sizeof(vqd_wire_pull) == 16,
               "records have no gaps");
#endif

#endif
