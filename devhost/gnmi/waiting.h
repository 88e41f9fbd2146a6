/*
 * What waits until the client of a stream takes it: in order, and bounded.
 *
 * Values are kept as records and become messages one at a time. While they fit the bound every value waits; past it the
 * newest value of a row takes the place of the one of that row that waits already, and counts it as a duplicate; and of
 * a row that goes before the client has heard of it nothing is left. So there are never more bytes than the bound and
 * one entry for each row that there is or that the client knows.
 */
#ifndef DEVHOST_GNMI_WAITING_H
#define DEVHOST_GNMI_WAITING_H

#include <cstddef>
#include <cstdint>
#include <list>
#include <unordered_map>

#include "devhost/gnmi/paths.h"
#include "devhost/sampling/records.h"
#include "devhost/support/account.h"
#include "gnmi.pb.h"

namespace gnmi {

class Waiting {
  public:
    explicit Waiting(size_t bound) : bound_(bound) {}

    /* How messages are written. */
    void setForm(Encoding encoding, const Path& prefix);

    /* What is addressed outlives what waits. isNew: the row was not there before. */
    void addValue(const Addressed& what, const host::RowKey& row, bool isNew, const host::RecordPointer& record,
                  int64_t time);
    void addGone(const Addressed& what, const host::RowKey& row, int64_t time);
    void addSync();

    bool empty() const { return entries_.empty(); }

    /* Makes the next message; written() says later what became of it. Not while one is being written, or none waits. */
    void take(SubscribeResponse& message);
    void written(bool delivered);

    /* All that waits is dropped. */
    void stop();

    /* Of values. What is being written waits. */
    const host::Account& account() const { return account_; }

  private:
    enum class Kind : uint8_t { value, gone, sync };

    struct Entry {
        Kind kind;
        const Addressed* what = nullptr;
        host::RowKey row = {};
        host::RecordPointer record = {};
        int64_t time = 0;
        bool isNew = false;  // the client knows the row only from here on
        uint32_t duplicates = 0;

        uint64_t values() const { return kind == Kind::value ? 1 : 0; }
        size_t size() const;
    };
    using Entries = std::list<Entry>;

    struct RowOf {
        const Addressed* what;
        host::RowKey row;
        bool operator==(const RowOf&) const = default;
    };
    struct Hash {
        size_t operator()(const RowOf& row) const;
    };

    void add(Entry entry);
    bool replaceWaiting(Entry& entry);
    void note(Entries::iterator entry);
    void takeRows(Notification& notification);
    Entry takeFront();

    const size_t bound_;
    Encoding encoding_ = JSON;
    Path prefix_;
    Entries entries_;
    /* The last entry of each row; filled from when the bound is passed until nothing waits. */
    std::unordered_map<RowOf, Entries::iterator, Hash> last_;
    bool pastBound_ = false;
    uint64_t beingWritten_ = 0;  // values
    uint64_t bytesBeingWritten_ = 0;
    host::Account account_;
};

}  // namespace gnmi

#endif
