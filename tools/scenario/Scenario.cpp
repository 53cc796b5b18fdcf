#include "tools/scenario/Scenario.h"

#include <errno.h>
#include <string.h>

#include <fstream>

namespace lumacast::scenario {

namespace {

// Far beyond any line a person writes; a longer one is a file that is not a scenario.
constexpr size_t kMaxLine = 4096;

}  // namespace

bool Scenario::split(const std::string& text, std::vector<std::string>* words, std::string* why) {
    words->clear();
    std::string word;
    bool inWord = false;
    bool quoted = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (quoted) {
            if (c == '\\' && i + 1 < text.size() && (text[i + 1] == '"' || text[i + 1] == '\\')) {
                word += text[++i];
            } else if (c == '"') {
                quoted = false;
            } else {
                word += c;
            }
        } else if (c == ' ' || c == '\t' || c == '\r') {
            if (inWord) words->push_back(word);
            word.clear();
            inWord = false;
        } else if (c == '#' && !inWord) {
            break;
        } else {
            // Quotes may start anywhere in a word: text="{...}" is one word.
            if (c == '"') {
                quoted = true;
            } else {
                word += c;
            }
            inWord = true;
        }
    }
    if (quoted) {
        *why = "unterminated \"";
        return false;
    }
    if (inWord) words->push_back(word);
    return true;
}

bool Scenario::load(const std::string& path, Scenario* out, std::string* why) {
    std::ifstream in(path);
    if (!in) {
        *why = path + ": " + strerror(errno);
        return false;
    }
    out->mPath = path;
    out->mLines.clear();
    std::string text;
    for (int number = 1; std::getline(in, text); ++number) {
        ScenarioLine line;
        line.number = number;
        std::string reason;
        if (text.size() > kMaxLine) {
            reason = "line longer than " + std::to_string(kMaxLine) + " bytes";
        } else if (text.find('\0') != std::string::npos) {
            reason = "a NUL byte: not a text file";
        }
        if (!reason.empty() || !split(text, &line.words, &reason)) {
            *why = path + ":" + std::to_string(number) + ": " + reason;
            return false;
        }
        if (!line.words.empty()) out->mLines.push_back(std::move(line));
    }
    return true;
}

std::string Scenario::where(const ScenarioLine& line) const {
    return mPath + ":" + std::to_string(line.number);
}

}  // namespace lumacast::scenario
