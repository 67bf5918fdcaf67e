// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// The element as GStreamer sees it: caps, times, and one buffer for each frame. The worker's side of it is
// WorkerCamera.
#include "gstreamer/vqd_src.h"

#include <atomic>
#include <cstring>
#include <memory>

#include <gst/video/video.h>

#include "gstreamer/capture_time.h"
#include "gstreamer/properties.h"
#include "gstreamer/rate.h"
#include "gstreamer/settings_json.h"
#include "gstreamer/worker_camera.h"

GST_DEBUG_CATEGORY_STATIC(vqd_src_debug);
#define GST_CAT_DEFAULT vqd_src_debug

namespace
{

GstStaticPadTemplate pads = GST_STATIC_PAD_TEMPLATE(
    "src", GST_PAD_SRC, GST_PAD_ALWAYS,
    GST_STATIC_CAPS("video/x-raw, format = GRAY16_LE, width = 320, height = 240, framerate = [ 0/1, 2147483647/1 ]"));

constexpr GstResourceError kCodes[] = {
    GST_RESOURCE_ERROR_NOT_FOUND, // in the order of Trouble::Kind
    GST_RESOURCE_ERROR_BUSY,
    GST_RESOURCE_ERROR_SETTINGS,
    GST_RESOURCE_ERROR_READ,
};

} // namespace

struct VqdSrcParts {
    // Under the lock of the object
    Properties properties;
    Rate rate;

    std::atomic<bool> unlocked = false; // the thread of the stream must not wait

    // For the thread that starts and stops, and in between for the thread of the stream
    std::unique_ptr<WorkerCamera> camera;
    std::string request; // the settings as the worker takes them
    GstCaps* unixTime = gst_caps_new_empty_simple("timestamp/x-unix");
    GstVideoInfo info{};
    GstClockTime baseTime = GST_CLOCK_TIME_NONE;
    int64_t from = 0;       // what was taken before is not of this run; CLOCK_MONOTONIC in ns
    uint64_t following = 0; // the sequence number of a frame that follows without a gap

    ~VqdSrcParts() { gst_caps_unref(unixTime); }
};

G_DEFINE_TYPE_WITH_CODE(VqdSrc, vqd_src, GST_TYPE_PUSH_SRC,
                        GST_DEBUG_CATEGORY_INIT(vqd_src_debug, "vqdsrc", 0, "depth cameras behind workers"))

namespace
{

VqdSrcParts& partsOf(void* object)
{
    return *static_cast<VqdSrc*>(object)->parts;
}

Rate rateOf(void* object)
{
    GST_OBJECT_LOCK(object);
    const Rate rate = partsOf(object).rate;
    GST_OBJECT_UNLOCK(object);
    return rate;
}

void setRate(void* object, const Rate& rate)
{
    GST_OBJECT_LOCK(object);
    partsOf(object).rate = rate;
    GST_OBJECT_UNLOCK(object);
}

void report(void* object, const Trouble& trouble)
{
    gst_element_message_full(GST_ELEMENT(object), GST_MESSAGE_ERROR, GST_RESOURCE_ERROR, kCodes[trouble.kind],
                             g_strdup(trouble.sentence.c_str()), nullptr, "vqd_src.cpp", GST_FUNCTION, __LINE__);
}

void setProperty(GObject* object, guint id, const GValue* value, GParamSpec* spec)
{
    GST_OBJECT_LOCK(object);
    const bool known = setIn(partsOf(object).properties, id, value);
    GST_OBJECT_UNLOCK(object);
    if (!known)
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
}

void getProperty(GObject* object, guint id, GValue* value, GParamSpec* spec)
{
    GST_OBJECT_LOCK(object);
    const bool known = getFrom(partsOf(object).properties, id, value);
    GST_OBJECT_UNLOCK(object);
    if (!known)
        G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec);
}

void finalize(GObject* object)
{
    delete &partsOf(object);
    G_OBJECT_CLASS(vqd_src_parent_class)->finalize(object);
}

gboolean start(GstBaseSrc* base)
{
    VqdSrcParts& parts = partsOf(base);
    GST_OBJECT_LOCK(base);
    const Properties properties = parts.properties;
    GST_OBJECT_UNLOCK(base);
    Trouble trouble{Trouble::kSettings, ""};
    parts.request.clear();
    if (!properties.settings.empty() && !settingsJson(properties.settings, parts.request, trouble.sentence)) {
        report(base, trouble);
        return FALSE;
    }
    parts.camera = std::make_unique<WorkerCamera>();
    if (!parts.camera->connect(properties.serial)) {
        report(base, parts.camera->trouble());
        parts.camera.reset();
        return FALSE;
    }
    parts.baseTime = GST_CLOCK_TIME_NONE;
    parts.following = 0;
    return TRUE;
}

gboolean stop(GstBaseSrc* base)
{
    partsOf(base).camera.reset();
    setRate(base, Rate());
    return TRUE;
}

gboolean unlock(GstBaseSrc* base)
{
    partsOf(base).unlocked = true;
    return TRUE;
}

gboolean unlockStop(GstBaseSrc* base)
{
    partsOf(base).unlocked = false;
    return TRUE;
}

// The rate is measured, and the load of a machine changes it a little, so a pipeline that names the camera's own rate
// is served. Other rates are for videorate.
GstCaps* getCaps(GstBaseSrc* base, GstCaps* filter)
{
    GstCaps* caps = gst_pad_get_pad_template_caps(GST_BASE_SRC_PAD(base));
    if (const Rate rate = rateOf(base); rate.numerator > 0) {
        caps = gst_caps_make_writable(caps);
        gst_caps_set_simple(caps, "framerate", GST_TYPE_FRACTION_RANGE, rate.numerator * 9, rate.denominator * 10,
                            rate.numerator * 11, rate.denominator * 10, nullptr);
    }
    if (filter != nullptr) {
        GstCaps* const common = gst_caps_intersect_full(filter, caps, GST_CAPS_INTERSECT_FIRST);
        gst_caps_unref(caps);
        caps = common;
    }
    return caps;
}

GstCaps* fixate(GstBaseSrc* base, GstCaps* caps)
{
    const Rate rate = rateOf(base);
    caps = gst_caps_truncate(gst_caps_make_writable(caps));
    gst_structure_fixate_field_nearest_fraction(gst_caps_get_structure(caps, 0), "framerate", rate.numerator,
                                                rate.denominator);
    return GST_BASE_SRC_CLASS(vqd_src_parent_class)->fixate(base, caps);
}

gboolean setCaps(GstBaseSrc* base, GstCaps* caps)
{
    return gst_video_info_from_caps(&partsOf(base).info, caps);
}

// Waits for the camera, without which the rate is not known. When the wait is broken off, create() goes on with it.
gboolean negotiate(GstBaseSrc* base)
{
    const VqdSrcParts& parts = partsOf(base);
    WorkerCamera& camera = *parts.camera;
    while (!camera.isReady()) {
        if (parts.unlocked)
            return TRUE;
        switch (camera.prepare(parts.request)) {
        case Step::failed:
            report(base, camera.trouble());
            return FALSE;
        case Step::done:
            GST_INFO_OBJECT(base, "the camera delivers %.2f frames a second", camera.rate());
            setRate(base, Rate(camera.rate()));
            gst_element_post_message(GST_ELEMENT(base), gst_message_new_latency(GST_OBJECT(base)));
            break;
        case Step::later:
            break;
        }
    }
    if (GST_BASE_SRC_CLASS(vqd_src_parent_class)->negotiate(base))
        return TRUE;
    if (!GST_PAD_IS_FLUSHING(GST_BASE_SRC_PAD(base)))
        GST_ELEMENT_ERROR(
            base, CORE, NEGOTIATION,
            ("The pipeline does not take GRAY16_LE at the camera's %.1f frames a second: videoconvert and "
             "videorate make other formats and rates.",
             camera.rate()),
            (nullptr));
    return FALSE;
}

// A frame arrives up to an interval after it was taken, and the next one takes its place an interval later.
gboolean query(GstBaseSrc* base, GstQuery* query)
{
    if (GST_QUERY_TYPE(query) != GST_QUERY_LATENCY)
        return GST_BASE_SRC_CLASS(vqd_src_parent_class)->query(base, query);
    const Rate rate = rateOf(base);
    if (rate.numerator == 0)
        return FALSE;
    gst_query_set_latency(query, TRUE, rate.interval(), rate.interval());
    return TRUE;
}

// The first frame that was taken since the pipeline plays.
GstFlowReturn await(GstBaseSrc* base, vqd_client_frame& frame)
{
    VqdSrcParts& parts = partsOf(base);
    if (const GstClockTime baseTime = gst_element_get_base_time(GST_ELEMENT(base)); baseTime != parts.baseTime) {
        parts.baseTime = baseTime;
        parts.from = monotonicTime();
    }
    while (!parts.unlocked) {
        const Step step = parts.camera->next(frame);
        if (step == Step::failed) {
            report(base, parts.camera->trouble());
            return GST_FLOW_ERROR;
        }
        if (step == Step::done && frame.monotonic_time_ns >= parts.from)
            return GST_FLOW_OK;
    }
    return GST_FLOW_FLUSHING;
}

bool copyPlane(const uint16_t* plane, const GstVideoInfo& info, GstBuffer* buffer)
{
    GstVideoFrame image;
    if (!gst_video_frame_map(&image, &info, buffer, GST_MAP_WRITE))
        return false;
    const auto width = static_cast<size_t>(info.width);
    auto* const pixels = static_cast<guint8*>(GST_VIDEO_FRAME_PLANE_DATA(&image, 0));
    for (int row = 0; row < info.height; ++row)
        memcpy(pixels + static_cast<ptrdiff_t>(row) * GST_VIDEO_FRAME_PLANE_STRIDE(&image, 0),
               plane + static_cast<size_t>(row) * width, width * sizeof *plane);
    gst_video_frame_unmap(&image);
    return true;
}

void describe(GstBaseSrc* base, const vqd_client_frame& frame, GstBuffer* buffer)
{
    VqdSrcParts& parts = partsOf(base);
    GST_BUFFER_PTS(buffer) = runningTime(GST_ELEMENT(base), frame.monotonic_time_ns);
    GST_BUFFER_DTS(buffer) = GST_CLOCK_TIME_NONE;
    GST_BUFFER_DURATION(buffer) = rateOf(base).interval();
    GST_BUFFER_OFFSET(buffer) = frame.sequence;
    GST_BUFFER_OFFSET_END(buffer) = frame.sequence + 1;
    if (frame.sequence != parts.following || frame.dropped > 0 || (frame.flags & VQD_CLIENT_FRAME_REOPENED) != 0)
        GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DISCONT);
    parts.following = frame.sequence + 1;
    gst_buffer_add_reference_timestamp_meta(buffer, parts.unixTime, static_cast<GstClockTime>(frame.real_time_ns),
                                            GST_CLOCK_TIME_NONE);
}

GstFlowReturn create(GstPushSrc* push, GstBuffer** buffer)
{
    GstBaseSrc* const base = GST_BASE_SRC(push);
    const GstVideoInfo& info = partsOf(base).info;
    if (!partsOf(base).camera->isReady()) {
        gst_pad_mark_reconfigure(GST_BASE_SRC_PAD(base));
        if (!gst_base_src_negotiate(base))
            return GST_FLOW_NOT_NEGOTIATED;
        if (!partsOf(base).camera->isReady())
            return GST_FLOW_FLUSHING;
    }
    vqd_client_frame frame;
    if (const GstFlowReturn result = await(base, frame); result != GST_FLOW_OK)
        return result;
    if (frame.width != static_cast<uint32_t>(info.width) || frame.height != static_cast<uint32_t>(info.height)) {
        report(base, {Trouble::kLost, "The worker sends images of another size than 320 x 240 pixels."});
        return GST_FLOW_ERROR;
    }
    GST_OBJECT_LOCK(base);
    const uint16_t* const plane = partsOf(base).properties.stream == kDepth ? frame.depth : frame.amplitude;
    GST_OBJECT_UNLOCK(base);
    const GstFlowReturn result = GST_BASE_SRC_CLASS(vqd_src_parent_class)
                                     ->alloc(base, GST_BUFFER_OFFSET_NONE, static_cast<guint>(info.size), buffer);
    if (result != GST_FLOW_OK)
        return result;
    if (!copyPlane(plane, info, *buffer)) {
        gst_clear_buffer(buffer);
        report(base, {Trouble::kLost, "A buffer of the pipeline cannot be written to."});
        return GST_FLOW_ERROR;
    }
    describe(base, frame, *buffer);
    return GST_FLOW_OK;
}

} // namespace

static void vqd_src_class_init(VqdSrcClass* type)
{
    GObjectClass* const object = G_OBJECT_CLASS(type);
    object->set_property = setProperty;
    object->get_property = getProperty;
    object->finalize = finalize;
    installProperties(object);
    GstElementClass* const element = GST_ELEMENT_CLASS(type);
    gst_element_class_set_static_metadata(element, "Depth camera source", "Source/Video/Hardware",
                                          "Depth or amplitude of a USB time-of-flight camera that a worker holds",
                                          "VQD_API contributors");
    gst_element_class_add_static_pad_template(element, &pads);
    gst_type_mark_as_plugin_api(streamType(), static_cast<GstPluginAPIFlags>(0));
    GstBaseSrcClass* const base = GST_BASE_SRC_CLASS(type);
    base->start = start;
    base->stop = stop;
    base->unlock = unlock;
    base->unlock_stop = unlockStop;
    base->get_caps = getCaps;
    base->fixate = fixate;
    base->set_caps = setCaps;
    base->negotiate = negotiate;
    base->query = query;
    GST_PUSH_SRC_CLASS(type)->create = create;
}

static void vqd_src_init(VqdSrc* self)
{
    self->parts = new VqdSrcParts;
    gst_base_src_set_live(GST_BASE_SRC(self), TRUE);
    gst_base_src_set_format(GST_BASE_SRC(self), GST_FORMAT_TIME);
}
