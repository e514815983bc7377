#pragma once

// A test video made on the spot with GStreamer: solid frames of known colours, JPEG-coded in an
// AVI, so a test can tell from the screen's pixels which frame it is looking at.

#include <gst/app/gstappsrc.h>
#include <gst/gst.h>

#include <cstdint>
#include <string>

namespace zorva::test {

/// 160 x 90 (16:9), 25 frames a second, 4 s: red for the first second, blue after. Frames
/// alternate between a full and a dimmed shade (255 and 205), so every frame differs from the
/// one before it.
struct TestClip {
  static constexpr int kWidth = 160, kHeight = 90, kFps = 25, kFrames = 100;

  /// Writes the clip to `path`; false when GStreamer lacks an element it needs.
  static bool write(const std::string& path) {
    GError* error = nullptr;
    const std::string description =
        "appsrc name=src format=time caps=video/x-raw,format=RGBx,width=160,height=90,"
        "framerate=25/1 ! videoconvert ! jpegenc quality=95 ! avimux ! filesink location=\"" +
        path + "\"";
    GstElement* pipeline = gst_parse_launch(description.c_str(), &error);
    if (!pipeline || error) {
      g_clear_error(&error);
      if (pipeline) gst_object_unref(pipeline);
      return false;
    }
    GstElement* src = gst_bin_get_by_name(GST_BIN(pipeline), "src");
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    for (int i = 0; i < kFrames; ++i) {
      const std::uint8_t shade = i % 2 == 0 ? 255 : 205;
      GstBuffer* frame = gst_buffer_new_allocate(nullptr, kWidth * kHeight * 4, nullptr);
      GstMapInfo map;
      gst_buffer_map(frame, &map, GST_MAP_WRITE);
      for (int p = 0; p < kWidth * kHeight; ++p) {
        map.data[p * 4] = i < kFps ? shade : 0;
        map.data[p * 4 + 1] = 0;
        map.data[p * 4 + 2] = i < kFps ? 0 : shade;
        map.data[p * 4 + 3] = 255;
      }
      gst_buffer_unmap(frame, &map);
      GST_BUFFER_PTS(frame) = gst_util_uint64_scale(i, GST_SECOND, kFps);
      GST_BUFFER_DURATION(frame) = gst_util_uint64_scale(1, GST_SECOND, kFps);
      gst_app_src_push_buffer(GST_APP_SRC(src), frame);
    }
    gst_app_src_end_of_stream(GST_APP_SRC(src));
    GstBus* bus = gst_element_get_bus(pipeline);
    GstMessage* end = gst_bus_timed_pop_filtered(
        bus, 10 * GST_SECOND, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    const bool written = end && GST_MESSAGE_TYPE(end) == GST_MESSAGE_EOS;
    if (end) gst_message_unref(end);
    gst_object_unref(bus);
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(src);
    gst_object_unref(pipeline);
    return written;
  }
};

}  // namespace zorva::test
