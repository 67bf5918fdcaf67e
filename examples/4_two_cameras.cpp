// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Two cameras at full rate, each with its own settings and corrections: a worker holds each of them, and this program
// takes the frames that belong together. Start the workers first:
//     vqd worker -c 24061100000001 & vqd worker -c 24061100000002 &
//     4_two_cameras 24061100000001 24061100000002
#include <cstdio>

#include <vqd_client.h>

// The mean depth of the pixels that have one, in millimetres.
static double meanDepth(const vqd_client_frame& frame)
{
    double sum = 0, count = 0;
    for (uint32_t i = 0; i < frame.width * frame.height; ++i)
        if (frame.depth[i] != 0) {
            sum += frame.depth[i];
            count += 1;
        }
    return count > 0 ? sum / count : 0;
}

// Returns whether all sets came.
static bool readSets(vqd_client_sets* sets, int wanted)
{
    vqd_client_error error;
    for (int set = 1; set <= wanted;) {
        vqd_client_frame frames[2];
        int64_t skew = 0;
        const int result = vqd_client_sets_next(sets, 10000, frames, &skew, &error);
        if (result == VQD_CLIENT_LOST) { // the worker looks for its camera, and the next call for the worker
            std::fprintf(stderr, "%s\n", error.text);
            continue;
        }
        if (result != VQD_CLIENT_OK) {
            std::fprintf(stderr, "%s\n", error.text);
            return false;
        }
        std::printf("set %d, taken within %.1f ms\n", set++, static_cast<double>(skew) / 1e6);
        for (const vqd_client_frame& frame : frames)
            std::printf("%s: frame %llu, %.0f mm on average\n", frame.serial,
                        static_cast<unsigned long long>(frame.sequence), meanDepth(frame));
    }
    return true;
}

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: 4_two_cameras SERIAL SERIAL\n");
        return 2;
    }
    vqd_client_error error;
    vqd_client* cameras[2];
    for (int i = 0; i < 2; ++i) {
        cameras[i] = vqd_client_connect(argv[1 + i], 10000, &error); // the worker may be starting still
        if (cameras[i] == nullptr) {
            std::fprintf(stderr, "%s\n", error.text);
            return 1;
        }
    }
    vqd_client_sets* const sets = vqd_client_sets_open(cameras, 2, &error);
    const bool done = sets != nullptr && readSets(sets, 3);
    vqd_client_sets_close(sets);
    for (vqd_client* camera : cameras)
        vqd_client_close(camera);
    return done ? 0 : 1;
}
