// Writes the renderer benchmark's 4000x3000 NV21 frame and its LUT (.cube,
// red fastest) into a folder: `render_fixture DIR`.
#include <cstdio>

#include "render_bench_fixture.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: render_fixture DIR\n");
    return 2;
  }
  return lumo::render::bench::writeFixture(argv[1]) ? 0 : 1;
}
