#pragma once

#include <kora/lumacast/IKCameraMotor.h>
#include <kora/lumacast/ILumacast.h>
#include <stdio.h>

#include <array>
#include <map>
#include <string>

#include "tools/demo/FakeTv.h"
#include "tools/scenario/Scenario.h"
#include "tools/scenario/ScenarioListener.h"

namespace lumacast::scenario {

// Plays one scenario on a fake TV, line by line, and stops at the first line that fails:
// a command that did not do what it says, or an expectation that did not come true in time.
class ScenarioRunner {
  public:
    // `tv` is set up, its daemon not yet started (the scenario's first lines may pick the
    // motor board). Progress goes to `out`.
    ScenarioRunner(demo::FakeTv* tv, const Scenario* scenario, FILE* out);

    // True when every line did what it says; otherwise false with "FILE:LINE: ..." in *why.
    bool run(std::string* why);

    // Verbs and word counts of every line, before anything runs.
    static bool check(const Scenario& scenario, std::string* why);

  private:
    bool runLine(const std::vector<std::string>& words, std::string* why);
    bool startDaemon(std::string* why);
    bool plug(const std::vector<std::string>& w, std::string* why);
    bool answer(const std::vector<std::string>& w, std::string* why);
    bool stream(const std::vector<std::string>& w, std::string* why);
    bool camera(const std::vector<std::string>& w, std::string* why);
    bool mcu(const std::vector<std::string>& w, std::string* why);
    bool call(const std::vector<std::string>& w, std::string* why);
    bool listen(const std::vector<std::string>& w, std::string* why);
    bool unlisten(const std::vector<std::string>& w, std::string* why);
    bool firmware(const std::vector<std::string>& w, std::string* why);
    bool expect(const std::vector<std::string>& w, std::string* why);
    // One look at what an expectation is about: true when it holds; *seen says what is.
    bool holds(const std::vector<std::string>& w, std::string* seen, std::string* why);

    // A camsim or devsim command that must answer "ok".
    bool camsim(const std::string& command, std::string* why);
    bool devsim(const std::string& command, std::string* why);
    bool services(std::string* why);

    demo::FakeTv* const mTv;
    const Scenario* const mScenario;
    FILE* const mOut;
    std::string mBoard = "cedar";
    bool mDaemonStarted = false;
    bool mPlugged = false;
    std::string mLastResult;
    bool mHaveResult = false;
    // Where `mark` was: log and listener expectations look at what came after it.
    size_t mLogMark = 0;
    std::map<std::string, std::array<uint64_t, ScenarioListener::kKindCount>> mCountMarks;
    android::sp<kora::lumacast::ILumacast> mLumacast;
    android::sp<kora::lumacast::IKCameraMotor> mMotor;
    std::map<std::string, android::sp<ScenarioListener>> mListeners;
};

}  // namespace lumacast::scenario
