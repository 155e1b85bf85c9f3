// `lumo generate NAME -o OUT`: writes one of the generated test pictures.
#include <memory>

#include "commands.h"
#include "frame_source.h"
#include "image_files.h"
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
                "Output image (.png, .jpg, or a raw .nv21/.nv12/.rgba dump)")
      ->required();
  c->add_option("--width", o->width, "Width in pixels")->check(CLI::Range(2, 16384));
  c->add_option("--height", o->height, "Height in pixels")->check(CLI::Range(2, 16384));
  c->callback([o] { writeImage(o->output, generateScene(o->name, o->width, o->height)); });
}

}  // namespace lumo
