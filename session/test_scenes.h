// Generated pictures: a colour test chart and photo-like scenes (sunset,
// plants, food, night, portrait) for sessions without input images and for
// the bundled demo. Deterministic: the same name and size give the same bytes.
#pragma once

#include <string>
#include <vector>

#include "image.h"

namespace lumo {

const std::vector<std::string>& generatedSceneNames();  // "chart" first
bool isGeneratedScene(const std::string& name);
// RGBA image of the given size; throws Failure for an unknown name.
Image generateScene(const std::string& name, uint32_t width, uint32_t height);

}  // namespace lumo
