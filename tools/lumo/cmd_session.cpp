// `lumo session from-dumps DIR -o SESSION.jsonl`.
#include <lumo/contract.h>

#include <cstdio>
#include <filesystem>
#include <memory>

#include "atomic_file.h"
#include "commands.h"
#include "dump_session.h"
#include "failure.h"

namespace lumo {

namespace {

struct FromDumpsOptions {
  std::string dir, output;
  bool png = false;  // PNG outputs instead of raw ones
};

}  // namespace

void addSessionCommand(CLI::App& app) {
  auto o = std::make_shared<FromDumpsOptions>();
  CLI::App* c = addGroupedCommand(
      app, "session", "Make capture sessions", "from-dumps",
      std::string("Turn a device's dump folder (the plugin's image dumps and parameter text dumps "
                  "from ") +
          kDumpFolder + ") into a session that replays those frames with the recorded values");
  c->add_option("DIR", o->dir, "Folder of dumps (searched recursively)")
      ->required()
      ->check(CLI::ExistingDirectory);
  c->add_option("-o,--output", o->output, "Session file to write (.jsonl)")->required();
  c->add_flag("--png", o->png,
              "Name the replayed outputs .png instead of raw dumps in the input's format");
  c->footer(
      "The dumps do not record everything: see docs/lumo.md (session from-dumps) for what a "
      "replay cannot reproduce. Warnings go to stderr.");
  c->callback([o] {
    const std::filesystem::path out(o->output);
    const DumpSession s = sessionFromDumps(o->dir, out.parent_path().string(), o->png);
    std::string text;
    for (const std::string& line : s.lines) text += line + "\n";
    if (out.has_parent_path()) {
      std::error_code ec;
      std::filesystem::create_directories(out.parent_path(), ec);
      if (ec) throw Failure(o->output + ": cannot create its folder: " + ec.message());
    }
    writeFileAtomically(o->output, text.data(), text.size());
    for (const std::string& w : s.warnings) std::fprintf(stderr, "lumo: warning: %s\n", w.c_str());
    std::printf("%s: %zu frames (%zu preview, %zu snapshot), %zu without recorded values\n",
                o->output.c_str(), s.lines.size(), s.preview, s.snapshot, s.withoutValues);
  });
}

}  // namespace lumo
