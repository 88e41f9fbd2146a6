/*
 * The database that the agent's feed fills and its workers read: a file that the configuration names, or one of the
 * agent's own, in memory, which is removed with everything beside it when the agent ends.
 */
#ifndef DEVHOST_AGENT_DATABASE_H
#define DEVHOST_AGENT_DATABASE_H

#include <string>

#include "devhost/support/descriptor.h"

namespace agent {

class Database {
  public:
    /* file: empty for one of the agent's own. Removes what agents left that were killed. Throws std::exception. */
    explicit Database(std::string file);
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    const std::string& file() const { return file_; }
    /* What it was made from. */
    std::string configured() const { return folder_.empty() ? file_ : ""; }

  private:
    void makeFolder();

    std::string file_;
    std::string folder_;     // of its own; empty: none
    host::Descriptor lock_;  // on the folder, as long as the agent lives
};

}  // namespace agent

#endif
