#pragma once

#include <string>

#include "tools/camsim/CameraSimulator.h"

namespace lumacast::camsim {

// The text commands of camsim's control interface (stdin or a Unix socket), one per line.
// Each returns one line: "ok ...", or "error: ..." with the reason.
class ControlProtocol {
  public:
    explicit ControlProtocol(CameraSimulator* camera) : mCamera(camera) {}

    std::string execute(const std::string& line);
    bool quitRequested() const { return mQuit; }

    static const char* usage();

  private:
    CameraSimulator* mCamera;
    bool mQuit = false;
};

}  // namespace lumacast::camsim
