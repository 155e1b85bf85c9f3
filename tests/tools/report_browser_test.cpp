// The report in a real browser: Debian's chromium, headless, loads the page
// from disk with every host name unresolvable, and the test reads back what
// it built (sections, frames, sliders), moves the slider, and checks
// that nothing failed to load and no script error was logged. With
// LUMO_REPORT_SHOTS=DIR it also leaves one screenshot per section there (the
// pictures in docs/report.md).
#include <gtest/gtest.h>

#include <cstdlib>
#include <nlohmann/json.hpp>

#include "html.h"
#include "tool_runner.h"

using namespace lumo_test;

namespace {

// Reads the page's own elements after load and moves the first slider.
constexpr const char* kProbe = R"(<script>
window.addEventListener('load', function () {
  var q = function (s) { return document.querySelectorAll(s); };
  var slider = document.querySelector('input.wipe[type=range]');
  var before = slider ? getComputedStyle(slider.parentNode.querySelector('.after')).clipPath : '';
  if (slider) { slider.value = 20; slider.dispatchEvent(new Event('input', {bubbles: true})); }
  var broken = 0;
  for (var i = 0; i < document.images.length; i++)
    if (!document.images[i].complete || document.images[i].naturalWidth === 0) broken++;
  var out = document.createElement('pre');
  out.id = 'probe';
  out.textContent = JSON.stringify({
    sections: Array.prototype.map.call(q('section.report'), function (e) { return e.id; }),
    frames: q('#replay .frame').length,
    sliders: q('input.wipe[type=range]').length,
    strip: q('#strength img').length,
    broken: broken,
    requests: performance.getEntriesByType('resource').map(function (e) { return e.name; })
        .filter(function (n) { return n.indexOf('data:') !== 0; }),
    clipBefore: before,
    clipAfter: slider ? slider.parentNode.querySelector('.after').style.clipPath : '',
    line: slider ? slider.parentNode.querySelector('.divider').style.left : ''
  });
  document.body.appendChild(out);
});
</script>)";

class ReportBrowser : public ToolTest {
protected:
  void SetUp() override {
    ToolTest::SetUp();
    if (browser.empty() || !fs::exists(browser)) {
      if (std::getenv("CI") != nullptr)
        FAIL() << "chromium is not installed; scripts/install-deps.sh installs it";
      GTEST_SKIP() << "chromium is not installed (scripts/install-deps.sh installs it)";
    }
  }

  // Runs the browser on `page` with extra flags; stderr goes to `log`.
  int browse(const std::string& flags, const std::string& page, const std::string& out,
             const std::string& log) const {
    const std::string cmd =
        "cd '" + dir.string() + "' && timeout 120 '" + browser +
        "' --headless --no-sandbox --disable-gpu --no-first-run --disable-extensions "
        "--disable-background-networking --disable-sync --hide-scrollbars --user-data-dir='" +
        path("profile") +
        "' "
        "--host-resolver-rules='MAP * ~NOTFOUND' --enable-logging=stderr --v=0 " +
        flags + " 'file://" + path(page) + "' >" + out + " 2>" + log;
    const int raw = std::system(cmd.c_str());
    return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  }

  const std::string browser = LUMO_CHROMIUM;
};

}  // namespace

TEST_F(ReportBrowser, PageLoadsOfflineWithEverySectionAndAWorkingSlider) {
  const std::string calibPath = LUMO_DEMO_CALIBRATION;
  // Both instances, blends, a frame the host copies, a frame of an unknown scene id.
  write(
      "s.jsonl",
      R"({"instance": "preview", "input": "generated:chart", "meta": {"stylization": 1, "scene": "common", "lux": 60, "cct": 3500, "zoom": 1}})"
      "\n"
      R"({"instance": "preview", "input": "generated:sunset", "meta": {"stylization": 1, "scene": "sunrise_sunset", "lux": 120, "cct": 3100, "zoom": 2}})"
      "\n"
      R"({"instance": "snapshot", "input": "generated:food", "meta": {"stylization": 1, "scene": "food", "lux": 450, "cct": 4000, "zoom": 1}})"
      "\n"
      R"({"instance": "snapshot", "input": "generated:night", "meta": {"stylization": 0, "scene": "night", "lux": 10, "cct": 4200, "zoom": 3}})"
      "\n"
      R"({"instance": "preview", "input": "generated:plants", "meta": {"stylization": 1, "scene": "plants", "lux": 500, "cct": 5200, "zoom": 2}})"
      "\n"
      R"({"instance": "snapshot", "input": "generated:portrait", "meta": {"stylization": 1, "faces": 1, "lux": 120, "cct": 4200, "zoom": 1}})"
      "\n");
  const Outcome o = lumo("report --calib '" + calibPath +
                         "' --against '" LUMO_DEMO_PREVIOUS "' --session s.jsonl -o r.html");
  ASSERT_EQ(o.status, 0) << o.err;
  const std::string html = readText(dir / "r.html");
  EXPECT_LT(html.size(), lumo::report::kPageBudgetBytes);
  EXPECT_EQ(lumo::report::externalReferences(html), std::vector<std::string>{});

  std::string probed = html;
  probed.insert(probed.rfind("</body>"), kProbe);
  write("probe.html", probed);
  ASSERT_EQ(browse("--virtual-time-budget=5000 --dump-dom", "probe.html", "dom.html", "log.txt"), 0)
      << readText(dir / "log.txt");
  const std::string dom = readText(dir / "dom.html");
  const auto at = dom.find("<pre id=\"probe\">");
  ASSERT_NE(at, std::string::npos) << "the page's load handler did not run";
  std::string text = dom.substr(at + 16, dom.find("</pre>", at) - at - 16);
  for (const auto& [entity, c] : {std::pair{"&amp;", "&"}, {"&lt;", "<"}, {"&gt;", ">"}})
    for (size_t p = text.find(entity); p != std::string::npos; p = text.find(entity, p))
      text.replace(p, std::string(entity).size(), c);
  const nlohmann::json seen = nlohmann::json::parse(text);
  EXPECT_EQ(seen["sections"],
            nlohmann::json::array({"calibration", "coverage", "diff", "replay", "strength"}));
  EXPECT_EQ(seen["frames"], 6);
  EXPECT_EQ(seen["sliders"], 6);
  EXPECT_EQ(seen["strip"], 5);
  EXPECT_EQ(seen["broken"], 0);
  EXPECT_EQ(seen["requests"], nlohmann::json::array());  // nothing fetched from anywhere
  EXPECT_EQ(seen["clipBefore"], "inset(0px 0px 0px 50%)");
  EXPECT_EQ(seen["clipAfter"], "inset(0px 0px 0px 20%)");
  EXPECT_EQ(seen["line"], "20%");  // the line the note speaks of follows the slider

  // Nothing the page asked for failed, and no script complained.
  const std::string log = readText(dir / "log.txt");
  for (const char* bad : {"net::ERR_", "Uncaught", "Failed to load", ":ERROR:CONSOLE"})
    EXPECT_EQ(log.find(bad), std::string::npos) << bad << "\n" << log;

  // Pictures for the documentation: one section at a time, the first frame opened.
  if (const char* shots = std::getenv("LUMO_REPORT_SHOTS")) {
    for (const std::string id : {"calibration", "coverage", "replay", "strength", "diff"}) {
      std::string one = html;
      one.insert(one.find("</style>"),
                 "section.report:not(#" + id + "){display:none}#frame-1{display:block}");
      write(id + ".html", one);
      browse("--window-size=1100,900 --screenshot=" + std::string(shots) + "/" + id + ".png",
             id + ".html", "/dev/null", "/dev/null");
    }
  }
}

// The command's own answers, without a browser.
class ReportCli : public ToolTest {};

TEST_F(ReportCli, ExitCodesAndNothingHalfWritten) {
  write("broken.bin", std::string(10, '\x01'));
  // `lumo replay --report`: the same page for a replay the user ran, with the
  // calibration under the device root, the outputs where the user wanted them.
  fs::create_directories(dir / "dev/odm/etc/camera");
  fs::copy_file(LUMO_DEMO_CALIBRATION, dir / "dev/odm/etc/camera/lumo_filter_param.bin");
  write(
      "s.jsonl",
      R"({"instance": "preview", "input": "generated:chart", "meta": {"stylization": 1, "scene": "common", "lux": 220, "cct": 4500}})"
      "\n"
      R"({"instance": "snapshot", "input": "generated:food", "output": "food.jpg", "meta": {"stylization": 1, "scene": "food", "lux": 450, "cct": 4000}})"
      "\n");
  const std::string calib = LUMO_DEMO_CALIBRATION;
  const std::string looks = (fs::path(calib).parent_path() / "demo_looks.json").string();
  const std::string report = "report --calib '" + calib + "' ";
  expectRuns({
      {"report -o r.html", 2, {"give a calibration file, a session, a fit or several"}},
      {"report --fit broken.bin -o r.html", 1, {"broken.bin: not the JSON of `lumo lut fit"}},
      {"report --calib missing.bin -o r.html", 2, {"missing.bin"}},
      {"report --calib broken.bin -o r.html", 1, {"not a readable calibration file"}},
      {report + "--looks broken.bin -o r.html", 1, {"not a looks description"}},
      {report + "--against '" LUMO_DEMO_PREVIOUS "' --looks '" + looks + "' -o r.html", 0},
      {"replay s.jsonl --device-root dev --out out --report replay.html", 0},
  });
  EXPECT_EQ(files("out"), (std::vector<std::string>{"food.jpg", "frame_000000_preview.png"}));
  const std::string page = readText(dir / "replay.html");
  EXPECT_EQ(countOf(page, "data-section=\""), 4u);  // no diff without a second calibration
  EXPECT_EQ(countOf(page, "type=\"range\""), 2u);
  EXPECT_EQ(countOf(page, "pictures not readable"), 0u);
  // Against the previous demo calibration: the current one adds a block and
  // the 3x zoom ratio; the looks name the cells.
  const std::string html = readText(dir / "r.html");
  for (const char* words : {"LUT pool: 12 -&gt; 13 blocks", "zoom 3: added",
                            "<span class=\"look\">warm_day</span> block"})
    EXPECT_NE(html.find(words), std::string::npos) << words;
}
