#include "devhost/gnmi/waiting.h"

#include <functional>
#include <iterator>
#include <string>
#include <utility>

#include "devhost/gnmi/values.h"

namespace gnmi {

size_t Waiting::Entry::size() const {
    return sizeof(Entry) + row.size() + (record ? host::sizeOf(*record) : 0);
}

size_t Waiting::Hash::operator()(const RowOf& row) const {
    return std::hash<const void*>()(row.what) ^ std::hash<std::string>()(row.row);
}

void Waiting::setForm(Encoding encoding, const Path& prefix) {
    encoding_ = encoding;
    prefix_ = prefix;
}

void Waiting::addValue(const Addressed& what, const host::RowKey& row, bool isNew, const host::RecordPointer& record,
                       int64_t time) {
    ++account_.offered;
    ++account_.waiting;
    add({Kind::value, &what, row, record, time, isNew});
}

void Waiting::addGone(const Addressed& what, const host::RowKey& row, int64_t time) {
    add({Kind::gone, &what, row, nullptr, time});
}

void Waiting::addSync() {
    entries_.push_back({Kind::sync});
}

void Waiting::add(Entry entry) {
    if (!pastBound_ && account_.bytesWaiting + entry.size() > bound_) {
        pastBound_ = true;
        for (auto each = entries_.begin(); each != entries_.end(); ++each) {
            note(each);
        }
    }
    if (account_.bytesWaiting + entry.size() > bound_ && replaceWaiting(entry)) {
        return;
    }
    account_.bytesWaiting += entry.size();
    entries_.push_back(std::move(entry));
    if (pastBound_) {
        note(std::prev(entries_.end()));
    }
}

bool Waiting::replaceWaiting(Entry& entry) {
    const auto known = last_.find({entry.what, entry.row});
    if (known == last_.end()) {
        return false;
    }
    const Entries::iterator waiting = known->second;
    account_.waiting -= waiting->values();
    account_.drop(host::Drop::replaced, waiting->values());
    account_.bytesWaiting -= waiting->size();
    if (entry.kind == Kind::gone && waiting->isNew) {
        last_.erase(known);
        entries_.erase(waiting);
        return true;
    }
    entry.isNew = waiting->isNew;
    entry.duplicates = waiting->duplicates + static_cast<uint32_t>(waiting->values());
    account_.bytesWaiting += entry.size();
    *waiting = std::move(entry);
    return true;
}

void Waiting::note(Entries::iterator entry) {
    if (entry->kind != Kind::sync) {
        last_[{entry->what, entry->row}] = entry;
    }
}

Waiting::Entry Waiting::takeFront() {
    const auto front = entries_.begin();
    if (pastBound_ && front->kind != Kind::sync) {
        if (const auto known = last_.find({front->what, front->row}); known != last_.end() && known->second == front) {
            last_.erase(known);
        }
    }
    Entry entry = std::move(*front);
    entries_.pop_front();
    pastBound_ = pastBound_ && !entries_.empty();
    return entry;
}

void Waiting::take(SubscribeResponse& message) {
    message.Clear();
    if (entries_.front().kind == Kind::sync) {
        takeFront();
        message.set_sync_response(true);
    } else {
        takeRows(*message.mutable_update());
    }
}

// As many as were read at one time and fit. What is deleted comes first in a notification.
void Waiting::takeRows(Notification& notification) {
    const int64_t time = entries_.front().time;
    notification.set_timestamp(time);
    if (!prefix_.target().empty() || !prefix_.origin().empty()) {
        *notification.mutable_prefix() = prefix_;
    }
    size_t size = 0;
    while (!entries_.empty() && entries_.front().kind != Kind::sync && entries_.front().time == time &&
           size < kNotificationSize) {
        if (entries_.front().kind == Kind::gone && notification.update_size() > 0) {
            return;
        }
        bytesBeingWritten_ += entries_.front().size();
        const Entry entry = takeFront();
        if (entry.kind == Kind::gone) {
            *notification.add_delete_() = pathOf(*entry.what->list, entry.row);
            size += notification.delete_(notification.delete__size() - 1).ByteSizeLong();
        } else {
            ++beingWritten_;
            size += addUpdates(notification, *entry.what, entry.row, *entry.record, encoding_, entry.duplicates);
        }
    }
}

void Waiting::written(bool delivered) {
    account_.waiting -= beingWritten_;
    account_.bytesWaiting -= bytesBeingWritten_;
    (delivered ? account_.delivered : account_.dropped[static_cast<size_t>(host::Drop::stopped)]) += beingWritten_;
    beingWritten_ = 0;
    bytesBeingWritten_ = 0;
}

void Waiting::stop() {
    entries_.clear();
    last_.clear();
    pastBound_ = false;
    const uint64_t left = account_.waiting - beingWritten_;
    account_.drop(host::Drop::stopped, left);
    account_.waiting = beingWritten_;
    account_.bytesWaiting = bytesBeingWritten_;
}

}  // namespace gnmi
