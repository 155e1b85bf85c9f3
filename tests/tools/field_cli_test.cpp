// Black-box tests of what a camera engineer meets in the field: per-frame
// results that say what the plugin did, damaged calibration files, sizes,
// usage errors, repeated frame numbers, process modes and session typos.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tool_runner.h"

using namespace lumo_test;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace {

const std::string kProbe = std::string(" --plugin '") + PROBE_PLUGIN + "'";

// A calibration with only the "common" scene, so other scenes have no parameters.
const char* kCommonOnly = R"({"looks": {"a": {"generate": {"saturation": 1.5}}},
  "shadings": {"s": [0.1, 0.9, 1, 0.2, 0, 1, 0, 1]},
  "scenes": [{"name": "common", "lux": [{"start": 0, "end": 1000,
    "cct": [{"start": 0, "end": 10000, "lut": "a"}]}]}],
  "zooms": [{"ratio": 1, "lux": [{"start": 0, "end": 1000,
    "cct": [{"start": 0, "end": 10000, "shading": "s"}]}]}]})";

std::string frameLine(const std::string& instance, const std::string& meta,
                      const std::string& extra = "") {
  return R"({"instance": ")" + instance +
         R"(", "width": 32, "height": 16, "input": "generated:chart")" + extra + R"(, "meta": {)" +
         meta + "}}\n";
}

}  // namespace

class FieldCli : public ToolTest {
protected:
  Outcome replay(const std::string& session, const std::string& options) const {
    write("s.jsonl", session);
    return lumo("replay s.jsonl --out out --logcat log.txt" + options);
  }
  nlohmann::json frames(const Outcome& o) const {
    const auto j = nlohmann::json::parse(o.out, nullptr, false);
    return j.is_discarded() ? nlohmann::json::array() : j["frames"];
  }
};

#ifdef LUMO_REAL_PLUGIN
// Each frame says whether the plugin filtered it, and if not why, from what it did.
TEST_F(FieldCli, EveryFrameSaysWhatThePluginDid) {
  fs::create_directories(dir / "dev/odm/etc/camera");
  write("d.json", kCommonOnly);
  ASSERT_EQ(lumo("calib build d.json -o dev/odm/etc/camera/lumo_filter_param.bin").status, 0);
  const std::string session = frameLine("preview", R"("stylization": 1, "lux": 100, "cct": 4000)") +
                              frameLine("preview", R"("stylization": 0)") +
                              frameLine("snapshot", R"("stylization": 1, "scene": "food")") +
                              frameLine("snapshot", R"("stylization": 1, "scene": "common")");
  struct Case {
    const char* options;
    std::vector<const char*> reasons;  // per frame; "" for filtered
  };
  const Case cases[] = {
      {" --device-root dev", {"", "host-disabled", "no-scene-parameters", "sticky-bypass"}},
      {" --device-root dev --prop persist.vendor.camera.lumofilter.bypassMode=1",
       {"bypass-switch", "host-disabled", "no-scene-parameters", "sticky-bypass"}},
      {" --device-root empty",
       {"no-calibration", "host-disabled", "no-calibration", "no-calibration"}},
  };
  fs::create_directories(dir / "empty");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.options);
    const Outcome o = replay(session, std::string(c.options) + " --json");
    ASSERT_EQ(o.status, 0) << o.err;
    const auto f = frames(o);
    ASSERT_EQ(f.size(), c.reasons.size()) << o.out;
    for (size_t i = 0; i < f.size(); ++i) {
      SCOPED_TRACE(i);
      const std::string want = c.reasons[i];
      EXPECT_EQ(f[i]["plugin"], want.empty() ? "filtered" : "copied");
      if (want.empty()) {
        EXPECT_EQ(f[i]["lut"]["index"].size(), 4u);
        EXPECT_EQ(f[i]["lut"]["weights"].size(), 4u);
        EXPECT_EQ(f[i]["shading"].size(), 8u);
        EXPECT_THAT(f[i]["script"].get<std::string>(), StartsWith("CubeLutEffect;"));
      } else {
        EXPECT_EQ(f[i]["reason"], want);
      }
    }
  }
  // The table says it too, and never "yes" for a copied frame.
  const Outcome o = replay(session, " --device-root dev");
  EXPECT_THAT(o.out, HasSubstr("copied: no parameters for the scene"));
  EXPECT_THAT(o.out, HasSubstr("the calibration has no scene \"food\""));
  EXPECT_THAT(o.out, HasSubstr("lut 0, 0, 0, 0"));
}
#endif
