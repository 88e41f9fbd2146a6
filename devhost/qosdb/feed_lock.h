/*
 * Who feeds a database: one process at a time, into the files that have its names.
 *
 * The lock is the kernel's (flock), on the log of the database: SQLite has no lock of its own on it, while on the
 * database and its index those would end with ours. It goes with the process, however that ends, and leaves no file
 * behind. A log that is removed takes its lock along, so whoever holds it has to ask again and again whether the names
 * still are those of its files.
 */
#ifndef DEVHOST_QOSDB_FEED_LOCK_H
#define DEVHOST_QOSDB_FEED_LOCK_H

#include <string>

namespace qosdb {

inline std::string walOf(const std::string& database) {
    return database + "-wal";
}
inline std::string shmOf(const std::string& database) {
    return database + "-shm";
}

class FeedLock {
  public:
    FeedLock() = default;
    ~FeedLock() { release(); }
    FeedLock(const FeedLock&) = delete;
    FeedLock& operator=(const FeedLock&) = delete;

    /* Locks the log of a database that is open. Answers what stands against it, "" when it is locked. */
    std::string take(const std::string& database);
    void release();

    /* Whether the file of this name now is one that this process has open, apart from the lock. */
    bool isOpen(const std::string& file) const;

  private:
    int descriptor_ = -1;
};

}  // namespace qosdb

#endif
