// Standard camera metadata tags the plugin reads by number.
#pragma once

typedef enum camera_metadata_tag {
  ANDROID_CONTROL_ZOOM_RATIO = 0x1002F,           // float
  ANDROID_STATISTICS_FACE_RECTANGLES = 0x110006,  // int32 x 4 per face
} camera_metadata_tag_t;
