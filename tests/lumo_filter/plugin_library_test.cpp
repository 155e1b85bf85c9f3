// The built library loaded as the camera host loads it: its provider and
// the switches it reads at load, in a fresh child as they are read once.
#include "plugin_test_support.h"

#ifndef LUMO_PLUGIN_LIBRARY
#error "LUMO_PLUGIN_LIBRARY must name the built plugin library"
#endif

namespace {

using namespace lumotest;

// The entry registers one provider; bypass 1 copies only the preview;
// force-enable 2 inverts the session's choice; switches set after loading are
// ignored.
TEST(PluginLibrary, LoadTimeSwitches) {
  EXPECT_EQ(runInChild([] {
              Host host({{"bypassMode", "1"}, {"forceEnable", "2"}});
              if (!host.loaded) return;
              ASSERT_EQ(host.registry.providers().size(), 1u);
              // Its type and version are the registry's to check.
              EXPECT_EQ(host.registry.providers()[0]->getName(), kProviderName);
              property_set("persist.vendor.camera.lumofilter.bypassMode", "3");
              property_set("persist.vendor.camera.lumofilter.forceEnable", "1");
              vyalgo2::PluginWraper& snapshot = host.make(0);
              EXPECT_FALSE(enabledFor(snapshot, 3));
              vyalgo2::ProcessPluginPrivMessage message;
              EXPECT_EQ(snapshot.onPrepareRequest(&message), -1);
              Frame p = makeFrame(32, 16, 1, sceneTags(0)), s = makeFrame(32, 16, 1, {});
              host.make(1).processRequest(&p.request);
              snapshot.processRequest(&s.request);
              EXPECT_TRUE(p.outputEqualsInput());
              // The recording filter writes nothing.
              EXPECT_EQ(std::count(s.output->data(), s.output->data() + s.output->size(), 0),
                        std::ptrdiff_t(s.output->size()));
            }),
            0);
}

// The whole chain with the SDK the library links: a LUT that maps every
// colour to mid grey, with a neutral style effect, must turn any frame grey.
TEST(PluginLibrary, FramesReachTheLinkedSdk) {
#ifndef LUMO_HAVE_RENDERER
  GTEST_SKIP() << "no filter SDK built";
#endif
  EXPECT_EQ(runInChild([] {
              calib::CalibrationFile file = testCalibration();
              file.luts[lutBlockOf("common")].assign(calib::kLutBlockBytes, 128);
              for (auto& shading : file.shadings) shading.fill(0.0f);
              installCalibration(file);
              Host host({}, /*recordFilters=*/false);
              if (!host.loaded) return;
              Frame frame = makeFrame(64, 32, 1, sceneTags(0, 100.0f), 128);
              hostsim::LogCapture capture;
              EXPECT_EQ(host.make(0).processRequest(&frame.request), 0);
              for (const PluginLine& l : pluginLines(capture)) EXPECT_NE(l.priority, 6) << l;
              const hostsim::ImageBuffer& out = *frame.output;
              int off = 0;
              // NV21 rows hold 64 bytes of Y, or 32 VU pairs; the padding is left out.
              for (uint32_t p = 0; p < out.planeCount(); ++p)
                for (uint32_t row = 0; row < out.planeRows(p); ++row)
                  for (size_t x = 0; x < 64; ++x)
                    off += std::abs(out.plane(p)[row * out.rowBytes(p) + x] - 128) > 1;
              EXPECT_EQ(off, 0);
            }),
            0);
}

}  // namespace
