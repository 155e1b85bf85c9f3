// Framework utilities on host image buffers: the plane-aware copy and the
// raw image dump.
#include <android/log.h>
#include <hostsim/device_root.h>
#include <lumo/contract.h>
#include <platform/device_path.h>
#include <sys/stat.h>
#include <system/graphics.h>
#include <vyalgo2/PluginUtils.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "buffer_planes.h"
#include "device_files.h"

namespace vyalgo2 {
namespace {

constexpr const char* kTag = "VyAlgoEngine";

const char* dumpExtension(uint32_t format) {
  switch (format) {
    case HAL_PIXEL_FORMAT_YCrCb_420_SP:
      return ".nv21";
    case HAL_PIXEL_FORMAT_YCbCr_420_SP:
      return ".nv12";
    case HAL_PIXEL_FORMAT_RGBA_8888:
      return ".rgba";
    default:
      return ".raw";
  }
}

}  // namespace

int PluginUtils::vyCopyBuffer(VyImageBuffer* dst, VyImageBuffer* src) {
  if (dst == nullptr || src == nullptr) return -1;
  if (dst->format != src->format || dst->width != src->width || dst->height != src->height) {
    __android_log_print(ANDROID_LOG_ERROR, kTag,
                        "vyCopyBuffer: format %u %ux%u into format %u %ux%u refused", src->format,
                        src->width, src->height, dst->format, dst->width, dst->height);
    return -1;
  }
  hostsim::BufferPlanes from, to;
  std::string why = hostsim::describePlanes(*src, from);
  if (why.empty()) why = hostsim::describePlanes(*dst, to);
  if (!why.empty()) {
    __android_log_print(ANDROID_LOG_ERROR, kTag, "vyCopyBuffer: %s", why.c_str());
    return -1;
  }
  for (uint32_t p = 0; p < from.count; ++p) {
    const hostsim::PlaneSpan& s = from.planes[p];
    const hostsim::PlaneSpan& d = to.planes[p];
    for (uint32_t row = 0; row < s.rows; ++row)
      std::memmove(d.data + row * d.pitch, s.data + row * s.pitch, s.rowBytes);
  }
  return 0;
}

// Each plane is written with its row pitch and `height` rows (rows of
// padding below the picture are left out), so a reader needs only the
// width, height and stride the caller puts in the name.
int PluginUtils::dumpToFile(VyImageBuffer* buffer, const char* name) {
  if (buffer == nullptr || name == nullptr || name[0] == '\0') return -1;
  hostsim::BufferPlanes planes;
  std::string why = hostsim::describePlanes(*buffer, planes);
  if (!why.empty()) {
    __android_log_print(ANDROID_LOG_ERROR, kTag, "dumpToFile %s: %s", name, why.c_str());
    return -1;
  }
  const std::string folder = vyplatform::devicePath(lumo::kDumpFolder);
  struct stat st {};
  if (stat(folder.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
    __android_log_print(ANDROID_LOG_ERROR, kTag, "dumpToFile %s: dump folder %s does not exist",
                        name, folder.c_str());
    return -1;
  }
  const std::string device = std::string(lumo::kDumpFolder) + name + dumpExtension(buffer->format);
  // Named in messages as it maps, even when the mapping refuses it.
  const std::string path = hostsim::deviceRoot() + device;
  FILE* f = hostsim::openHostFile(device.c_str(), "wb");
  if (f == nullptr) {
    __android_log_print(ANDROID_LOG_ERROR, kTag, "dumpToFile: cannot open %s: %s", path.c_str(),
                        std::strerror(errno));
    return -1;
  }
  errno = 0;
  int error = 0;
  const auto failed = [] { return errno != 0 ? errno : EIO; };
  for (uint32_t p = 0; p < planes.count && error == 0; ++p) {
    const hostsim::PlaneSpan& s = planes.planes[p];
    if (std::fwrite(s.data, 1, s.pitch * s.rows, f) != s.pitch * s.rows) error = failed();
  }
  if (std::fclose(f) != 0 && error == 0) error = failed();
  if (error != 0) {
    // A dump cut short looks like a smaller picture to readers: none is better.
    std::remove(vyplatform::devicePath(device.c_str()).c_str());
    __android_log_print(ANDROID_LOG_ERROR, kTag, "dumpToFile: cannot write %s: %s; removed",
                        path.c_str(), std::strerror(error));
    return -1;
  }
  return 0;
}

}  // namespace vyalgo2
