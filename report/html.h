// Building blocks of the one-file HTML report: escaping, data URIs, and the
// page frame (style sheet, the few lines of script the slider needs, the
// section index). Everything the page shows is computed before it gets here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace lumo::report {

// What a report may weigh: small enough to mail. Pictures are left out once
// the page would grow past it (the page says so where one is missing).
constexpr size_t kPageBudgetBytes = 4u << 20;

std::string escapeHtml(std::string_view text);
std::string base64(const uint8_t* bytes, size_t size);
std::string dataUri(std::string_view mime, const std::vector<uint8_t>& bytes);

struct Section {
  std::string id;     // anchor, also data-section
  std::string title;  // heading and index entry
  std::string body;   // HTML
};

// The whole document. `styles` adds rules (for example one class per swatch
// picture, so a picture used in many cells is carried once).
std::string page(const std::string& title, const std::vector<Section>& sections,
                 const std::string& styles = {});

// Every reference the page makes to something outside itself: http(s)://
// anywhere, and src/href/url() values that are neither data: URIs nor
// in-page anchors. A report must have none.
std::vector<std::string> externalReferences(const std::string& html);

// Elements that are opened and never closed, or closed without being open
// (void elements aside); empty for a well-formed page.
std::vector<std::string> unbalancedTags(const std::string& html);

// Formatting helpers for numbers shown on the page.
std::string fixed(double value, int decimals);

}  // namespace lumo::report
