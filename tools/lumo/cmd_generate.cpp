// `lumo generate NAME -o OUT`: writes one of the generated test pictures.
#include <cstdio>
#include <memory>

#include "commands.h"
#include "dump_name.h"
#include "frame_source.h"
#include "image_files.h"
#include "raw_geometry.h"
#include "test_scenes.h"

namespace lumo {

void addGenerateCommand(CLI::App& app) {
  struct Options {
    std::string name, output;
    uint32_t width = kDefaultWidth, height = kDefaultHeight;
  };
  auto o = std::make_shared<Options>();
  CLI::App* c = app.add_subcommand("generate", "Write a generated test picture");
  c->add_option("NAME", o->name, "Picture: chart, sunset, plants, food, night, portrait")
      ->required()
      ->check(CLI::IsMember(generatedSceneNames()));
  c->add_option("-o,--output", o->output,
                "Output image (.png, .jpg, or a raw .nv21/.nv12/.rgba dump; a raw name may "
                "carry the layout: NAME_WxH_STRIDE[_SCANLINE].nv21)")
      ->required()
      ->check(outputImageName());
  c->add_option("--width", o->width, "Width in pixels")->check(CLI::Range(2, 16384));
  c->add_option("--height", o->height, "Height in pixels")->check(CLI::Range(2, 16384));
  c->callback([o] {
    writeImage(o->output, generateScene(o->name, o->width, o->height));
    // A raw buffer whose name does not carry its layout: say how to read it back.
    if (const auto format = rawOutputFormat(o->output); format && !geometryFromName(o->output)) {
      const Image written = readImage(o->output, {*format, o->width, o->height, 0, 0});
      std::fprintf(stderr, "lumo: note: %s holds %s: read it with --width %u --height %u\n",
                   o->output.c_str(), describeGeometry(written.geometry).c_str(), o->width,
                   o->height);
    }
  });
}

}  // namespace lumo
