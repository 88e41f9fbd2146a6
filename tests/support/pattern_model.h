/*
 * An interface-name pattern as the C library's regular expressions understand it.
 */
#ifndef TESTS_SUPPORT_PATTERN_MODEL_H
#define TESTS_SUPPORT_PATTERN_MODEL_H

#include <regex.h>

#include <cstdlib>
#include <string>

class PatternModel {
  public:
    explicit PatternModel(const std::string& pattern) {
        std::string expression = "^";
        for (const char character : pattern) {
            expression += character == '*' ? std::string("([0-9]*)") : std::string(1, character);
        }
        compiles_ = isOk(regcomp(&compiled_, (expression + "$").c_str(), REG_EXTENDED | REG_ICASE));
    }
    PatternModel(const PatternModel&) = delete;
    PatternModel& operator=(const PatternModel&) = delete;
    ~PatternModel() {
        if (compiles_) {
            regfree(&compiled_);
        }
    }
    bool matches(const std::string& name) const {
        regmatch_t where;
        return compiles_ && isOk(regexec(&compiled_, name.c_str(), 1, &where, 0));
    }

  private:
    static bool isOk(int result) {
        if (result == REG_ESPACE) {
            abort();  // that is no answer
        }
        return result == 0;
    }

    regex_t compiled_;
    bool compiles_;
};

#endif
