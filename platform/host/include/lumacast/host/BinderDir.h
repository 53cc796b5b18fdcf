#pragma once

#include <string>

namespace lumacast::host {

// The directory where this simulated device's services are registered: LUMACAST_BINDER_DIR,
// or a per-user default under /tmp.
std::string binderDir();

}  // namespace lumacast::host
