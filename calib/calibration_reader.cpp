// Strict decoding of calibration files. The walk mirrors the loader: header,
// AI-scene blocks from paramDataOffset stepping by their declared sizes,
// zoom-ratio blocks behind them, then the LUT and shading pools at
// lutDataOffset, whose block counts follow from the last CCT record of each
// tree. Every departure from the format becomes an Issue; decoding goes on
// as far as the bytes allow.
#include <calib/calibration_reader.h>
#include <lumo/calib_layout.h>
#include <lumo/contract.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <set>
#include <sstream>

namespace calib {
namespace {

using Severity = Issue::Severity;
using calib_layout::ByteCursor;

class Walker {
public:
  explicit Walker(const std::vector<uint8_t>& bytes) : m_bytes(bytes) {}

  ReadResult run();

private:
  void issue(Severity s, size_t offset, const std::string& record, const std::string& message) {
    if (m_result.issues.size() < ReadResult::kMaxIssues)
      m_result.issues.push_back({s, offset, record, message, ""});
    else
      ++(s == Severity::Error ? m_result.unlistedErrors : m_result.unlistedWarnings);
  }
  ByteCursor at(size_t offset) const { return ByteCursor(m_bytes.data(), m_bytes.size(), offset); }
  bool has(size_t offset, size_t size) const { return at(offset).has(size); }
  // Blocks whose declared sizes overlap make every later block re-read the
  // same bytes; once the issues run into the thousands, the walk stops
  // (saying so) instead of spending seconds listing more of the same.
  bool flooded(size_t offset, const std::string& record) {
    if (m_result.issueCount() < ReadResult::kStopAfter) return false;
    // Listed even past the cap: a reader of the list must know it is partial.
    if (!m_stopped)
      m_result.issues.push_back({Severity::Error, std::min(offset, m_bytes.size()), record,
                                 "over " + std::to_string(ReadResult::kStopAfter) +
                                     " issues so far: the rest of the file is not examined",
                                 ""});
    m_stopped = true;
    return true;
  }
  // Where a scene or zoom block starts, or false once too many issues stopped the walk.
  bool enterBlock(size_t pos, const std::string& record, std::vector<size_t>& offsets) {
    if (flooded(pos, record)) return false;
    offsets.push_back(pos);
    return true;
  }
  // Fields the walk has already checked are there.
  uint16_t u16(size_t o) const {
    uint16_t v = 0;
    at(o).u16(v);
    return v;
  }
  float f32(size_t o) const {
    float f = 0;
    at(o).f32(f);
    return f;
  }
  bool need(size_t offset, size_t size, const std::string& record, const std::string& what) {
    if (has(offset, size)) return true;
    issue(Severity::Error, offset, record,
          "file ends at byte " + std::to_string(m_bytes.size()) + " but " + what + " needs bytes " +
              std::to_string(offset) + ".." + std::to_string(offset + size - 1));
    return false;
  }
  std::string text(size_t offset, size_t size, const std::string& record, const std::string& what);
  // The declared size to keep for a block whose contents end at `end` (0:
  // truncated); reports contents that run into the next block.
  std::optional<uint16_t> declared(size_t begin, size_t end, uint16_t size, size_t sizeOffset,
                                   const std::string& record, const std::string& sizeName) {
    if (end == 0) return std::nullopt;
    const size_t used = end - begin;
    if (used > size)
      issue(Severity::Error, sizeOffset, record,
            "the contents take " + std::to_string(used) + " bytes but " + sizeName + " declares " +
                std::to_string(size) + ": the next block would start inside this one");
    if (used < size) return size;
    return std::nullopt;
  }
  // Reads lux bands at `offset`; returns the offset behind them or 0 when truncated.
  size_t bands(size_t offset, const std::string& record, std::vector<LuxBand>& out, bool lutTree);
  template <typename Band, typename Start, typename End>
  void checkOrder(const std::vector<Band>& list, size_t i, size_t offset, const std::string& record,
                  const char* kind, Start start, End end);

  const std::vector<uint8_t>& m_bytes;
  ReadResult m_result;
  int m_lastLut = -1, m_lastShading = -1;
  bool m_stopped = false;
  std::vector<std::pair<int, std::pair<size_t, std::string>>> m_lutRefs, m_shadingRefs;
};

std::string Walker::text(size_t offset, size_t size, const std::string& record,
                         const std::string& what) {
  const auto begin = m_bytes.begin() + long(offset);
  const auto nul = std::find(begin, begin + long(size), uint8_t(0));
  if (nul == begin + long(size))
    issue(Severity::Error, offset, record,
          what + " is not NUL-terminated within its " + std::to_string(size) + " bytes");
  return std::string(begin, nul);
}

template <typename Band, typename Start, typename End>
void Walker::checkOrder(const std::vector<Band>& list, size_t i, size_t offset,
                        const std::string& record, const char* kind, Start start, End end) {
  const Band& b = list[i];
  if (start(b) > end(b))
    issue(Severity::Error, offset, record,
          std::string(kind) + " band starts at " + std::to_string(start(b)) + " after its end " +
              std::to_string(end(b)) + ": expected start <= end");
  if (i > 0 && !followsInOrder(end(list[i - 1]), start(b)))
    issue(Severity::Error, offset, record,
          std::string(kind) + " band [" + std::to_string(start(b)) + ", " + std::to_string(end(b)) +
              "] does not follow [" + std::to_string(start(list[i - 1])) + ", " +
              std::to_string(end(list[i - 1])) +
              "]: expected bands in ascending order without overlap");
}

size_t Walker::bands(size_t offset, const std::string& record, std::vector<LuxBand>& out,
                     bool lutTree) {
  using namespace calib_layout;
  if (!need(offset, kLuxCountBytes, record, "the lux band count")) return 0;
  const uint16_t count = u16(offset);
  offset += kLuxCountBytes;
  if (count == 0)
    issue(Severity::Warning, offset - kLuxCountBytes, record,
          "no lux bands: frames here find nothing");
  for (uint16_t l = 0; l < count; ++l) {
    const std::string lr = record + ", lux band " + std::to_string(l);
    if (!need(offset, kLuxHeadBytes, lr, "the lux record")) return 0;
    ByteCursor head = at(offset);
    LuxBand band;
    uint16_t cctCount = 0;
    head.u16(band.start);
    head.u16(band.end);
    head.u16(cctCount);
    const size_t luxOffset = offset;
    offset += kLuxHeadBytes;
    if (cctCount == 0)
      issue(Severity::Warning, luxOffset, lr, "no CCT bands: frames in this band find nothing");
    for (uint16_t c = 0; c < cctCount; ++c) {
      const std::string cr = lr + ", cct band " + std::to_string(c);
      if (!need(offset, kCctBytes, cr, "the CCT record")) return 0;
      ByteCursor fields = at(offset);
      CctBand& cct = band.ccts.emplace_back();
      fields.u16(cct.start);
      fields.u16(cct.end);
      fields.u16(cct.index);
      checkOrder(
          band.ccts, c, offset, cr, "CCT", [](const CctBand& b) { return b.start; },
          [](const CctBand& b) { return b.end; });
      const int index = band.ccts.back().index;
      (lutTree ? m_lastLut : m_lastShading) = index;
      (lutTree ? m_lutRefs : m_shadingRefs).push_back({index, {offset + kCctIndexField, cr}});
      offset += kCctBytes;
    }
    out.push_back(std::move(band));
    checkOrder(
        out, l, luxOffset, lr, "lux", [](const LuxBand& b) { return b.start; },
        [](const LuxBand& b) { return b.end; });
  }
  return offset;
}

ReadResult Walker::run() {
  using namespace calib_layout;
  Layout& layout = m_result.layout;
  CalibrationFile& file = m_result.file;
  layout.fileSize = m_bytes.size();
  const std::string header = "header";
  if (!need(0, kU16Bytes, header, "aiScenesCount")) return m_result;
  const size_t a = u16(0);
  if (!need(kSceneSizesOffset, headerHeadBytes(a) - kSceneSizesOffset, header,
            "the header up to shadingZoomRatioCount"))
    return m_result;
  std::vector<uint16_t> sceneSizes(a), zoomSizes;
  for (size_t i = 0; i < a; ++i) sceneSizes[i] = u16(sceneSizeOffset(i));
  layout.paramDataOffset = u16(paramDataOffsetField(a));
  layout.lutDataOffset = u16(lutDataOffsetField(a));
  file.lut3dSize = u16(lut3dSizeField(a));
  const size_t z = u16(zoomCountField(a));
  layout.headerEnd = headerBytes(a, z);
  if (!need(0, layout.headerEnd, header,
            "a header with " + std::to_string(a) + " scene sizes and " + std::to_string(z) +
                " zoom sizes"))
    return m_result;
  for (size_t i = 0; i < z; ++i) zoomSizes.push_back(u16(zoomSizeOffset(a, i)));
  file.triggerControl =
      text(textOffset(a, z, 0), kTextBytes, "header, trigger_control", "trigger_control");
  file.paramType = text(textOffset(a, z, 1), kTextBytes, "header, param_type", "param_type");
  file.paramRange = text(textOffset(a, z, 2), kTextBytes, "header, param_range", "param_range");
  if (file.lut3dSize != kLutEdge)
    issue(Severity::Warning, lut3dSizeField(a), "header, lut3d_size",
          "lut3d_size is " + std::to_string(file.lut3dSize) +
              "; blocks are cut as 17x17x17 (14739 bytes) whatever it says");
  if (layout.paramDataOffset < layout.headerEnd)
    issue(Severity::Error, paramDataOffsetField(a), "header, paramDataOffset",
          "parameter data at " + std::to_string(layout.paramDataOffset) +
              " begins inside the header: expected at least " + std::to_string(layout.headerEnd));
  if (layout.paramDataOffset != layout.headerEnd) file.paramDataOffset = layout.paramDataOffset;

  size_t pos = layout.paramDataOffset;
  std::set<std::string> names;
  for (size_t i = 0; i < a; ++i) {
    std::string record = "scene block " + std::to_string(i);
    if (!enterBlock(pos, record, layout.sceneOffsets)) break;
    SceneBlock block;
    if (need(pos, kSceneNameBytes, record, "the scene name")) {
      block.name = text(pos, kSceneNameBytes, record, "the scene name");
      record += " \"" + block.name + "\"";
      if (!names.insert(block.name).second)
        issue(Severity::Warning, pos, record,
              "the scene name repeats: the loader keeps the first block");
      if (!lumo::isCameraScene(block.name))
        issue(Severity::Warning, pos, record,
              "the camera never reports this scene (it reports " + lumo::sceneNameList() + ")");
      const size_t end = bands(pos + kSceneBandsOffset, record, block.luxBands, true);
      block.declaredSize = declared(pos, end, sceneSizes[i], sceneSizeOffset(i), record,
                                    "aiScenesSize[" + std::to_string(i) + "]");
    }
    file.scenes.push_back(std::move(block));
    pos += sceneSizes[i];
  }
  std::set<float> ratios;
  for (size_t j = 0; j < z; ++j) {
    std::string record = "zoom block " + std::to_string(j);
    if (!enterBlock(pos, record, layout.zoomOffsets)) break;
    ZoomBlock block;
    if (need(pos, kF32Bytes, record, "the zoom ratio")) {
      block.ratio = f32(pos);
      std::ostringstream r;
      r << block.ratio;
      record += " (" + r.str() + ")";
      if (!std::isfinite(block.ratio) || block.ratio <= 0)
        issue(Severity::Error, pos, record,
              "zoom ratio " + r.str() + ": expected a positive finite number");
      else if (!ratios.insert(block.ratio).second)
        issue(Severity::Warning, pos, record,
              "the zoom ratio repeats: the loader keeps the first block");
      const size_t end = bands(pos + kZoomBandsOffset, record, block.luxBands, false);
      block.declaredSize = declared(pos, end, zoomSizes[j], zoomSizeOffset(a, j), record,
                                    "shadingZoomRatioSize[" + std::to_string(j) + "]");
    }
    file.zooms.push_back(std::move(block));
    pos += zoomSizes[j];
  }
  const size_t paramEnd = pos;
  if (paramEnd > m_bytes.size())
    issue(Severity::Error, m_bytes.size(), "parameter data",
          "the declared block sizes end at " + std::to_string(paramEnd) +
              ", past the end of the file");

  layout.lutCount = size_t(m_lastLut + 1);
  layout.shadingCount = size_t(m_lastShading + 1);
  auto checkRefs = [&](const auto& refs, size_t count, const char* pool, const char* tree) {
    for (const auto& [index, where] : refs)
      if (size_t(index) >= count && !flooded(where.first, where.second))
        issue(Severity::Error, where.first, where.second,
              "block index " + std::to_string(index) + " points past the " + pool + " pool of " +
                  std::to_string(count) + " blocks: the pool holds the last " + tree +
                  " CCT record's index plus one, so that record must carry the highest index");
  };
  checkRefs(m_lutRefs, layout.lutCount, "LUT", "scene");
  checkRefs(m_shadingRefs, layout.shadingCount, "shading", "zoom");

  if (layout.lutDataOffset < paramEnd)
    issue(Severity::Error, lutDataOffsetField(a), "header, lutDataOffset",
          "LUT pool at " + std::to_string(layout.lutDataOffset) +
              " overlaps the parameter data: expected at least " + std::to_string(paramEnd));
  if (layout.lutDataOffset != paramEnd) file.lutDataOffset = layout.lutDataOffset;
  const size_t poolEnd =
      layout.lutDataOffset + shadingBlockOffset(layout.lutCount, layout.shadingCount);
  if (!need(layout.lutDataOffset, poolEnd - layout.lutDataOffset, "pools",
            std::to_string(layout.lutCount) + " LUT and " + std::to_string(layout.shadingCount) +
                " shading blocks"))
    return m_result;
  for (size_t i = 0; i < layout.lutCount; ++i) {
    const auto begin = m_bytes.begin() + long(layout.lutDataOffset + lutBlockOffset(i));
    file.luts.emplace_back(begin, begin + long(kLutBlockBytes));
  }
  for (size_t i = 0; i < layout.shadingCount; ++i) {
    ShadingBlock s{};
    ByteCursor block = at(layout.lutDataOffset + shadingBlockOffset(layout.lutCount, i));
    for (size_t k = 0; k < kShadingFloats; ++k) {
      const size_t offset = block.pos();
      block.f32(s[k]);
      if (!std::isfinite(s[k]))
        issue(Severity::Warning, offset, "shading block " + std::to_string(i),
              "value " + std::to_string(k) + " is not finite: the renderer skips this shading");
    }
    file.shadings.push_back(s);
  }
  if (poolEnd < m_bytes.size()) {
    file.trailingBytes.assign(m_bytes.begin() + long(poolEnd), m_bytes.end());
    issue(Severity::Warning, poolEnd, "pools",
          std::to_string(m_bytes.size() - poolEnd) +
              " bytes after the last pool block are never read");
  }
  return m_result;
}

}  // namespace

bool ReadResult::ok() const {
  return unlistedErrors == 0 && std::none_of(issues.begin(), issues.end(), [](const Issue& i) {
           return i.severity == Issue::Severity::Error;
         });
}

const std::vector<std::string>& knownSceneNames() {
  static const std::vector<std::string> names(std::begin(lumo::kSceneNames),
                                              std::end(lumo::kSceneNames));
  return names;
}

ReadResult readCalibration(const std::vector<uint8_t>& bytes) { return Walker(bytes).run(); }

std::string calibrationSizeLimit() { return std::to_string(kMaxCalibrationBytes >> 20) + " MiB"; }

ReadResult readCalibrationFile(const std::string& path) {
  ReadResult r;
  const auto refuse = [&](const std::string& message) {
    r.issues.push_back({Issue::Severity::Error, 0, "file", message, ""});
    return r;
  };
  // Sized before anything is read, so a huge (or sparse) file costs nothing.
  std::error_code ec;
  if (!std::filesystem::is_regular_file(path, ec)) return refuse("cannot open: not a regular file");
  const uintmax_t size = std::filesystem::file_size(path, ec);
  if (ec) return refuse("cannot open: " + ec.message());
  if (size > kMaxCalibrationBytes)
    return refuse(std::to_string(size) + " bytes, above the " + calibrationSizeLimit() +
                  " a calibration file may have (they are kilobytes to a few megabytes); not read");
  std::ifstream in(path, std::ios::binary);
  if (!in) return refuse("cannot open");
  std::vector<uint8_t> bytes(size);
  in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(size));
  bytes.resize(static_cast<size_t>(in.gcount()));  // a file shrinking meanwhile reads short
  return readCalibration(bytes);
}

}  // namespace calib
