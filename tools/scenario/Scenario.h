#pragma once

#include <string>
#include <vector>

namespace lumacast::scenario {

// One line of a scenario file that does something: its number in the file and its words.
struct ScenarioLine {
    int number = 0;
    std::vector<std::string> words;
};

// A scenario file cut into words: blanks separate words, "double quotes" anywhere in a word
// keep blanks (with \" and \\ inside), and # at the start of a word starts a comment.
class Scenario {
  public:
    // False with "FILE:LINE: reason" for a file that cannot be read or cut into words.
    static bool load(const std::string& path, Scenario* out, std::string* why);
    static bool split(const std::string& text, std::vector<std::string>* words, std::string* why);

    const std::string& path() const { return mPath; }
    const std::vector<ScenarioLine>& lines() const { return mLines; }
    // "FILE:LINE" for reports.
    std::string where(const ScenarioLine& line) const;

  private:
    std::string mPath;
    std::vector<ScenarioLine> mLines;
};

}  // namespace lumacast::scenario
