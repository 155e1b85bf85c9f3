// The framework's conversion of an image description into an image buffer
// record, shared by the plugin interface default and the simulator's buffers.
#pragma once

#include <vyalgo2/ImageParams.h>
#include <vyalgo2/VyImageBuffer.h>

namespace hostsim {

void copyImageParams(const vyalgo2::ImageParams& params, vyalgo2::VyImageBuffer& buffer);

}  // namespace hostsim
