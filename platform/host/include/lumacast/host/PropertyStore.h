#pragma once

#include <string>

namespace lumacast::host {

// The directory that holds this simulated device's properties: LUMACAST_PROPERTY_DIR,
// or a per-user default under /tmp.
std::string propertyDir();

}  // namespace lumacast::host
