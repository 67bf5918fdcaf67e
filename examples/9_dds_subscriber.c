/* SPDX-FileCopyrightText: VQD_API contributors
 * SPDX-License-Identifier: Apache-2.0
 *
 * Takes depth images of vqd publish from the network by DDS alone, on any machine, with neither ROS nor this library.
 *   9_dds_subscriber TOPIC [IMAGES]      such as /vqd_24061100000001/depth/image_raw
 */
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>

#include <dds/dds.h>

#include "vqd_ros_types.h"

enum { kTaken = 5 };

static int fail(const char* what, dds_return_t result)
{
    fprintf(stderr, "%s: %s\n", what, dds_strretcode(-result));
    return 1;
}

/* ROS 2 calls this quality of service "sensor data", but reliable: what was lost on the way is sent again. */
static dds_qos_t* reliable(void)
{
    dds_qos_t* qos = dds_create_qos();
    dds_qset_reliability(qos, DDS_RELIABILITY_RELIABLE, DDS_SECS(1));
    dds_qset_history(qos, DDS_HISTORY_KEEP_LAST, kTaken);
    return qos;
}

static void show(const sensor_msgs_msg_dds__Image_* image)
{
    const uint32_t centre = image->height / 2 * image->step + image->width; /* of two bytes each */
    const double stamp = image->header.stamp.sec + image->header.stamp.nanosec / 1e9;
    if (image->step < 2 * image->width || image->data._length < (uint64_t)image->step * image->height ||
        image->height == 0)
        return; /* whoever publishes under this name, it is no camera */
    printf("%s: %.3f, %u x %u %s, %d in the middle, %.1f ms old\n", image->header.frame_id, stamp, image->width,
           image->height, image->encoding, image->data._buffer[centre] | image->data._buffer[centre + 1] << 8,
           (double)dds_time() / 1e6 - stamp * 1e3);
}

int main(int argc, char** argv)
{
    if (argc < 2) {
        fprintf(stderr, "usage: %s TOPIC [IMAGES]\n", argv[0]);
        return 2;
    }
    char name[256]; /* DDS knows the topics of ROS 2 with this in front */
    snprintf(name, sizeof name, "rt%s", argv[1]);
    const long most = argc > 2 ? atol(argv[2]) : 0;

    const char* const domain = getenv("ROS_DOMAIN_ID");
    const dds_entity_t participant =
        dds_create_participant(domain != NULL ? (dds_domainid_t)atoi(domain) : 0, NULL, NULL);
    if (participant < 0)
        return fail("no participant", participant);
    const dds_entity_t topic = dds_create_topic(participant, &sensor_msgs_msg_dds__Image__desc, name, NULL, NULL);
    if (topic < 0)
        return fail("no topic", topic);
    dds_qos_t* const qos = reliable();
    const dds_entity_t reader = dds_create_reader(participant, topic, qos, NULL);
    dds_delete_qos(qos);
    if (reader < 0)
        return fail("no reader", reader);
    const dds_entity_t waiting = dds_create_waitset(participant);
    const dds_entity_t condition = dds_create_readcondition(reader, DDS_ANY_STATE);
    dds_waitset_attach(waiting, condition, 0);

    for (long images = 0; most == 0 || images < most;) {
        dds_waitset_wait(waiting, NULL, 0, DDS_INFINITY);
        void* taken[kTaken] = {NULL}; /* lent by Cyclone */
        dds_sample_info_t info[kTaken];
        const dds_return_t count = dds_take(reader, taken, info, kTaken, kTaken);
        if (count < 0)
            return fail("nothing can be taken", count);
        for (int i = 0; i < count; ++i)
            if (info[i].valid_data) {
                show(taken[i]);
                ++images;
            }
        dds_return_loan(reader, taken, count);
    }
    return dds_delete(participant) == DDS_RETCODE_OK ? 0 : 1;
}
