/*
 * The floor: what a sampling call in GPB costs when it does nothing but what its contract fixes.
 *
 * A hand-written single-pass encoder that reads the rows through the same accessors, takes and gives back blocks of the
 * same count and sizes as the plug-in (sample buffer, tree nodes, text copies, sent keys, output and scratch blocks),
 * makes the same bounded copies (one per tag, length and value) and the same clock reads, and uploads the same bytes.
 * It has no tree, no filters and no function of the plug-in. For tables that fit in one batch.
 */
#ifndef BENCH_FLOOR_H
#define BENCH_FLOOR_H

#include <sys/time.h>

#include <bit>
#include <cstring>
#include <type_traits>
#include <vector>

#include "bench/tables.h"
#include "nivex_qos/tracking.h"
#include "nivex_qos/tree.h"
#include "platform/bounded.h"
#include "platform/host_framework.h"
#include "platform/system_time.h"

namespace bench {

/* How a table is sent: the container's number, and the number of the first leaf; ifIndex, the first column, is none. */
struct Numbers {
    uint32_t container;
    uint32_t firstLeaf;
};

inline constexpr uint32_t kGlobalQuery = 5;
inline constexpr uint32_t kEntry = 1;
inline constexpr size_t kNameSize = 32;

/* A sample buffer, obtained and zeroed as the plug-in does; upload() gives it back as well. */
class SampleBuffer {
  public:
    SampleBuffer() : sample_(static_cast<QosTlmSampleData*>(NIVEX_AllocBuff(sizeof(QosTlmSampleData)))) {
        memset_s(sample_, sizeof *sample_, 0, sizeof *sample_);
    }
    ~SampleBuffer() { NIVEX_FreeBuff(sample_); }
    SampleBuffer(const SampleBuffer&) = delete;
    SampleBuffer& operator=(const SampleBuffer&) = delete;
    QosTlmSampleData* operator->() const { return sample_; }
    void upload() const { bench::upload(sample_); }

  private:
    QosTlmSampleData* sample_;
};

inline void readClock() {
    timeval now{};
    gettimeofday(&now, nullptr);
    gettimeofday(&now, nullptr);
}

inline uint64_t readCollectTime() {
    KatSystime now = {};
    uint32_t high = 0;
    uint32_t low = 0;
    KAT_SystimeGet(&now);
    KAT_SystimeMsSince1970(&now, &high, &low);
    return uint64_t{high} << 32 | low;
}

inline uint32_t varintSize(uint64_t value) {
    return (static_cast<uint32_t>(std::bit_width(value | 1)) + 6) / 7;
}

/* Writes the wire format behind a position, through bounded copies. */
class Writer {
  public:
    Writer(uint8_t* dest, size_t room) : dest_(dest), room_(room) {}

    void varint(uint64_t value) {
        uint8_t bytes[10];
        size_t count = 0;
        while (value >= 0x80) {
            bytes[count++] = static_cast<uint8_t>(value | 0x80);
            value >>= 7;
        }
        bytes[count++] = static_cast<uint8_t>(value);
        copy(bytes, count);
    }
    void number(uint32_t field, uint64_t value) {
        varint(field << 3);
        varint(value);
    }
    void bytes(uint32_t field, const void* data, size_t count) {
        varint(field << 3 | 2);
        varint(count);
        copy(data, count);
    }
    size_t used() const { return used_; }
    size_t room() const { return room_ - used_; }
    uint8_t* end() { return dest_ + used_; }

  private:
    void copy(const void* data, size_t count) {
        if (memcpy_s(dest_ + used_, room_ - used_, data, count) == 0) {
            used_ += count;
        }
    }

    uint8_t* dest_;
    size_t room_;
    size_t used_ = 0;
};

template <class View>
class Floor {
  public:
    explicit Floor(Numbers numbers) : numbers_(numbers) {}
    ~Floor() { release(sent_); }
    Floor(const Floor&) = delete;
    Floor& operator=(const Floor&) = delete;

    /* Sends the table's rows but the first ones, which it only reads. */
    void run(size_t skipped = 0) {
        const SampleBuffer sample;
        release(sent_);
        rows_.clear();
        entriesSize_ = 0;
        take(blocks_, sizeof(QosTlmNode));  // root
        take(blocks_, sizeof(QosTlmNode));  // list
        walk<View>([&](const View& row) {
            if (skipped > 0) {
                --skipped;
            } else {
                add(row);
            }
        });
        encode(sample);
        release(blocks_);
        sample.upload();
    }

  private:
    struct Row {
        View values;
        char name[kNameSize];
        const char* nameCopy;
        size_t nameLen;
        size_t size;
    };

    static void* take(std::vector<void*>& blocks, size_t size) { return blocks.emplace_back(NIVEX_AllocBuff(size)); }
    static void release(std::vector<void*>& blocks) {
        for (void* block : blocks) {
            NIVEX_FreeBuff(block);
        }
        blocks.clear();
    }

    static size_t delimited(uint32_t field, size_t length) {
        return varintSize(field << 3) + varintSize(length) + length;
    }

    // Leaves of a row, in order: number(fieldNumber, value) or text(fieldNumber).
    template <class Number, class Text>
    void forEachLeaf(const Row& row, Number&& number, Text&& text) const {
        uint32_t field = numbers_.firstLeaf - 1;
        row.values.forEachColumn([&](const auto& value) {
            if constexpr (std::is_same_v<decltype(value), const char* const&>) {
                text(field);
            } else if (field >= numbers_.firstLeaf) {
                number(field, value);
            }
            ++field;
        });
    }

    void add(const View& values) {
        Row& row = rows_.emplace_back();
        row.values = values;
        if (strcpy_s(row.name, sizeof row.name, values.ifName) != 0) {
            fail("a name does not fit");
        }
        row.nameLen = strlen(row.name);
        row.size = 0;
        take(blocks_, sizeof(QosTlmNode));  // entry
        forEachLeaf(
            row,
            [&](uint32_t field, uint64_t value) {
                take(blocks_, sizeof(QosTlmNode));
                row.size += varintSize(field << 3) + varintSize(value);
            },
            [&](uint32_t field) {
                take(blocks_, sizeof(QosTlmNode));
                auto* copy = static_cast<char*>(take(blocks_, row.nameLen + 1));
                strcpy_s(copy, row.nameLen + 1, row.name);
                row.nameCopy = copy;
                row.size += delimited(field, row.nameLen);
            });
        take(sent_, sizeof(QosTlmHashNode));
        entriesSize_ += delimited(kEntry, row.size);
    }

    void encode(const SampleBuffer& sample) {
        readClock();
        const size_t size = delimited(kGlobalQuery, delimited(numbers_.container, entriesSize_));
        Writer output(static_cast<uint8_t*>(NIVEX_AllocBuff(size)), size);
        uint8_t* const block = output.end();
        Writer query(static_cast<uint8_t*>(NIVEX_AllocBuff(size)), size);
        uint8_t* const queryScratch = query.end();
        Writer list(static_cast<uint8_t*>(NIVEX_AllocBuff(size)), size);
        uint8_t* const listScratch = list.end();
        for (const Row& row : rows_) {
            Writer entry(static_cast<uint8_t*>(NIVEX_AllocBuff(list.room())), list.room());
            uint8_t* const entryScratch = entry.end();
            forEachLeaf(
                row, [&](uint32_t field, uint64_t value) { entry.number(field, value); },
                [&](uint32_t field) { entry.bytes(field, row.nameCopy, row.nameLen); });
            list.bytes(kEntry, entryScratch, entry.used());
            NIVEX_FreeBuff(entryScratch);
        }
        query.bytes(numbers_.container, listScratch, list.used());
        NIVEX_FreeBuff(listScratch);
        output.bytes(kGlobalQuery, queryScratch, query.used());
        NIVEX_FreeBuff(queryScratch);
        readClock();
        sample->collectStartTime = readCollectTime();
        sample->collectEndTime = sample->collectStartTime;
        memcpy_s(sample->data, sizeof sample->data, block, output.used());
        NIVEX_FreeBuff(block);
        sample->recordCount = static_cast<uint32_t>(rows_.size());
        sample->dataLen = static_cast<uint32_t>(output.used());
    }

    Numbers numbers_;
    std::vector<Row> rows_;
    std::vector<void*> blocks_;
    std::vector<void*> sent_;
    size_t entriesSize_ = 0;
};

}  // namespace bench

#endif
