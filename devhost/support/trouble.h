/*
 * What goes wrong, on standard error. In work that is repeated it is told once: the same messages in a row are printed
 * when they begin, and how many attempts they cost when they are over.
 */
#ifndef DEVHOST_SUPPORT_TROUBLE_H
#define DEVHOST_SUPPORT_TROUBLE_H

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace host {

/* What messages begin with; a text that lives as long as the program. */
void setProgramName(const char* name);

/* One message on standard error, in the form of shown.h. */
void report(std::string_view message);

/* The same of a text of several lines, a message each. */
void reportLines(std::string_view messages);

class Trouble {
  public:
    /* what: the work that is repeated, as in "sampling queue-statistics". */
    explicit Trouble(std::string what) : what_(std::move(what)) {}

    /* An attempt came to its end; the messages say what was wrong, none that all went well. Prints on standard error.
     */
    void tell(const std::vector<std::string>& messages);

    /* Whether any attempt had messages. */
    bool ever() const { return ever_; }

  private:
    std::string what_;
    std::vector<std::string> told_;
    uint64_t inARow_ = 0;
    bool ever_ = false;
};

}  // namespace host

#endif
