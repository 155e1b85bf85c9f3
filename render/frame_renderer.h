// Renders frames through an effect chain: chooses the fused kernels or the
// reference, splits the frame into row bands and runs them on a pool.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "effect_chain.h"
#include "fixed_point_kernels.h"
#include "frame_view.h"
#include "fused_kernels.h"
#include "thread_pool.h"

namespace lumo::render {

enum class RenderPath { Reference, Fused };

struct RenderOptions {
  RenderPath path = RenderPath::Fused;
  size_t threads = 1;
  // The 16-bit kernel for 4:2:0 frames where the chain's parameters fit it;
  // off, the float kernels render every column.
  bool fixedPoint = true;
};

// LUMO_RENDER_REFERENCE=1 forces the reference; LUMO_RENDER_FIXED_POINT=0
// leaves every column to the float kernels; LUMO_RENDER_THREADS=N sets the
// thread count (default: the hardware's, at most 8).
RenderOptions renderOptionsFromEnvironment();

class FrameRenderer {
public:
  explicit FrameRenderer(RenderOptions options);

  const RenderOptions& options() const { return m_options; }
  const EffectChain& chain() const { return m_chain; }
  void setChain(EffectChain chain);
  // Loads lattice bytes into LUT effect `lutIndex` (in script order).
  void setLattice(size_t lutIndex, const uint8_t* bytes);

  // Renders `in` into `out` (they may be the same frame). Empty on success,
  // otherwise why nothing was rendered.
  std::string render(const FrameView& in, const FrameView& out);

  // The path the last render took (the reference when the chain has a shape
  // the fused kernels do not implement).
  RenderPath lastPath() const { return m_lastPath; }
  // True when the last render used the fixed-point kernel (for most columns).
  bool lastUsedFixedPoint() const { return m_lastFixedPoint; }

private:
  // Both kernels' tables for the first LUT effect's lattice.
  void rebuildTables(const LutLattice& lattice);

  RenderOptions m_options;
  EffectChain m_chain;
  FusedTables m_tables;            // the first LUT effect's lattice, regrouped
  FixedPointTables m_fixedTables;  // the same, for the fixed-point kernel
  std::unique_ptr<ThreadPool> m_pool;
  RenderPath m_lastPath = RenderPath::Fused;
  bool m_lastFixedPoint = false;
};

// Copies the pixels of `in` into `out` (same geometry and family).
void copyFrame(const FrameView& in, const FrameView& out);

}  // namespace lumo::render
