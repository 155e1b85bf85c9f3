// `lumo yuv info FILE...`: geometry, arithmetic and an ffplay line for raw dumps.
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "failure.h"
#include "image_files.h"
#include "yuv_convert.h"
#include "yuv_info.h"

namespace lumo {

void addYuvCommand(CLI::App& app) {
  struct Options {
    std::vector<std::string> files;
    std::string format, preview, range = "full";
    uint32_t width = 0, height = 0, stride = 0, scanline = 0;
    bool json = false;
  };
  auto o = std::make_shared<Options>();
  CLI::App* c = addGroupedCommand(
      app, "yuv", "Examine raw NV21 / NV12 / RGBA dumps", "info",
      "Geometry of raw dumps (from the name, or from the size with the usual stride and "
      "scanline alignments), its arithmetic, and a ready ffplay command line");
  c->add_option("FILE", o->files, "Raw dumps")->required()->check(CLI::ExistingFile);
  c->add_option("--format", o->format, "Pixel format when the name does not say (default nv21)")
      ->check(CLI::IsMember({"nv21", "nv12", "rgba"}));
  c->add_option("--width", o->width, "Picture width in pixels");
  c->add_option("--height", o->height, "Picture height in rows");
  c->add_option("--stride", o->stride, "Row stride in pixels");
  c->add_option("--scanline", o->scanline, "Rows per plane");
  c->add_option("-o,--output", o->preview,
                "Write the picture (one FILE only) as .png or .jpg for a look; YUV is "
                "taken as full-range BT.601 (JFIF, as camera dumps are) unless --range says "
                "otherwise")
      ->check(outputImageName());
  CLI::Option* range =
      c->add_option("--range", o->range,
                    "YUV range for --output: full (0..255, camera dumps; the default) or limited "
                    "(Y 16..235, chroma 16..240: ffmpeg's and video tools' default NV21 / NV12)")
          ->check(CLI::IsMember({"full", "limited"}));
  c->add_flag("--json", o->json, "Print the findings as JSON");
  c->footer(
      "Names: ..._WIDTHxHEIGHT_STRIDE[_SCANLINE].nv21, "
      "..._width_W_height_H_stride_S_scanline_L..., "
      "and the plugin's IMAGE_[lumofilter]_INSTANCE_frame[N]_ROLE_WxH_STRIDE dumps. Exit 1 when "
      "a file's size does not add up.");
  c->callback([o, range] {
    if (!o->preview.empty() && o->files.size() != 1)
      throw CLI::ValidationError("--output", "a preview is written for one FILE only");
    RawHints hints;
    if (!o->format.empty()) hints.format = parseFormat(o->format);
    hints.width = o->width;
    hints.height = o->height;
    hints.stride = o->stride;
    hints.scanline = o->scanline;
    bool allOk = true;
    nlohmann::json all = nlohmann::json::array();
    std::vector<YuvInfo> infos;
    for (const std::string& file : o->files) {
      infos.push_back(inspectRaw(file, hints));
      allOk = allOk && infos.back().ok();
      if (o->json)
        all.push_back(infoJson(infos.back()));
      else
        std::printf("%s", describeInfo(infos.back()).c_str());
    }
    if (o->json) std::printf("%s\n", nlohmann::json({{"files", all}}).dump(2).c_str());
    if (!o->preview.empty()) {
      const YuvInfo& info = infos.front();
      if (!info.ok()) throw Failure(info.path + ": no preview written: " + info.problems.front());
      const Image picture = readLayout(info);
      if (o->range == "limited" && isYuv(picture.geometry.format)) {
        writeImage(o->preview, limitedRangeToRgba(picture));
      } else {
        writeImage(o->preview, picture);
        // Frames from video tools are limited range by default: washed-out blacks and dull
        // whites would be the only hint otherwise.
        if (isYuv(picture.geometry.format) && range->count() == 0)
          std::fprintf(stderr,
                       "lumo: %s: YUV taken as full range (0..255); for limited-range frames "
                       "(Y 16..235, as ffmpeg writes) give --range limited\n",
                       o->preview.c_str());
      }
    }
    if (!allOk) {
      size_t bad = 0;
      for (const YuvInfo& info : infos) bad += info.ok() ? 0 : 1;
      throw Failure(std::to_string(bad) + " of " + std::to_string(infos.size()) +
                    " files do not add up (see \"problem\" above)");
    }
  });
}

}  // namespace lumo
