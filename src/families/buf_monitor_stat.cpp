#include "nivex_qos/buf_monitor_stat.h"

#include "families/cycle.h"
#include "platform/system_time.h"

uint32_t g_qosTlmBufMonStatQueryToEnd = 0;

namespace {

using Record = QosTlmBufMonitorStat;

constexpr qos::Leaf kLeaves[] = {
    {"interface-name", 1, QOS_FIELD(ifName)},
    {"queue-id", 2, QOS_FIELD(queueIndex)},
    {"record-number", 3, QOS_FIELD(recordNumber)},
    {"query-type", 4, QOS_FIELD(queryType)},
    {"time", 5, QOS_FIELD(time)},
    {"buffer-usage", 6, QOS_FIELD(usedBuf)},
    {"percent", 7, QOS_FIELD(percent)},
    {"burst-start-time", 8, QOS_FIELD(startTime)},
    {"burst-start-buffer", 9, QOS_FIELD(startUsedBuf)},
    {"burst-start-buffer-percent", 10, QOS_FIELD(startPercent)},
    {"burst-peak-time", 11, QOS_FIELD(peakTime)},
    {"burst-peak-buffer", 12, QOS_FIELD(peakUsedBuf)},
    {"burst-peak-buffer-percent", 13, QOS_FIELD(peakPercent)},
    {"slot-id", 14, QOS_FIELD(slot)},
    {"burst-number", 15, QOS_FIELD(burstNumber)},
};

constexpr qos::Condition kConditions[] = {
    {"interface-name", qos::Match::exact, QOS_FIELD(ifName)},
    {"queue-id", qos::Match::number, QOS_FIELD(queueIndex),
     "[Tlm IsConditionBufMonitorStat] parse string to num failed."},
};

constexpr qos::Messages kMessages = {
    "[TLM GetBufMonitorStatIter] create obj failed, ret = ",
    "[TLM GetBufMonitorStatIter] create iter failed, ret = ",
    "[Tlm GetBufMonitorGpbStartNode] Create node1 failed.",
    "[Tlm GetBufMonitorGpbStartNode] Create node2 failed.",
    "[TLM GetBufMonitorJsonStartNode] Create root failed.",
    "[TLM GetBufMonitorJsonStartNode] Create node1 failed.",
    "[TLM GetBufMonitorJsonStartNode] Create node2 failed.",
    "[TLM GetBufMonitorJsonStartNode] Create node3 failed.",
    "",  // each accessor has its own, see readColumns
    "[Tlm ReadBufMonitorStatField] strcpy error, ret=",
    "[Tlm GetBufMonitorDataNode] Create node2 failed.",
};

constexpr qos::Family<Record> kFamily = {
    .index = QOS_TLM_FAMILY_BUF_MONITOR,
    .passIsOpen = &g_qosTlmBufMonStatQueryToEnd,
    .table = {db_create_qos_tlm_buffer_monitor_result_obj, db_release_qos_tlm_buffer_monitor_result_object},
    .containerNumber = 61,
    .listNumber = 61,
    .leaves = kLeaves,
    .conditions = kConditions,
    .keys = {.interface = QOS_FIELD(ifIndex), .queue = QOS_FIELD(queueIndex)},
    .jsonEndsByPayload = true,
    .messages = kMessages,
    .steps = {.gpbStartNode = QOS_TLM_GetBufMonitorGpbStartNode,
              .jsonStartNode = QOS_TLM_GetBufMonitorJsonStartNode,
              .read = QOS_TLM_ReadBufMonitorStatField,
              .isCondition = QOS_TLM_IsConditionBufMonitorStat,
              .addEntry = QOS_TLM_GetBufMonitorStatDataNode},
};
using Cycle = qos::Cycle<kFamily>;

// What a row holds besides the record's own fields.
struct Moment {
    uint64_t seconds;  // since 1970
    uint32_t milliseconds;
};

struct Raw {
    const char* ifName;
    Moment end;
    Moment start;
    Moment peak;
};

bool wasRead(uint32_t code, const char* column) {
    if (code != 0) {
        QOS_TLM_DiagErr("[DB][Read Qos Buffer Monitor Result From Object] Get %s", column);
    }
    return code == 0;
}

#define QOS_READ(column, destination, text) \
    wasRead(db_get_qos_tlm_buffer_monitor_result_##column(object, &(destination)), text)

// Ends at the first accessor that fails.
bool readColumns(void* object, QosTlmBufMonitorStat& record, Raw& raw) {
    return QOS_READ(if_index, record.ifIndex, "interface index") &&
           QOS_READ(queue_index, record.queueIndex, "queue index") &&
           QOS_READ(ifName, raw.ifName, "queue index") /* as the message has it */ &&
           QOS_READ(used_buf, record.usedBuf, "used buffer") && QOS_READ(percent, record.percent, "percent") &&
           QOS_READ(time_stamp, raw.end.seconds, "time stamp") &&
           QOS_READ(milli_second, raw.end.milliseconds, "milli second") &&
           QOS_READ(start_used_buf, record.startUsedBuf, "start used buf") &&
           QOS_READ(start_percent, record.startPercent, "start percent") &&
           QOS_READ(start_time_stamp, raw.start.seconds, "start time stamp") &&
           QOS_READ(start_milli_second, raw.start.milliseconds, "start mill second") &&
           QOS_READ(peak_used_buf, record.peakUsedBuf, "peak used buf") &&
           QOS_READ(peak_percent, record.peakPercent, "peak percent") &&
           QOS_READ(peak_time_stamp, raw.peak.seconds, "peak time stamp") &&
           QOS_READ(peak_milli_second, raw.peak.milliseconds, "peak mill second") &&
           QOS_READ(slot, record.slot, "slot") && QOS_READ(burst_number, record.burstNumber, "burst number");
}

#undef QOS_READ

bool writeTime(const Moment& moment, char* text, const char* what) {
    const uint32_t result = QOS_TLM_TimeStampToDateTime(moment.seconds, text, moment.milliseconds);
    if (result != 0) {
        QOS_TLM_DiagErr("[Tlm ReadBufMonitorStatField] read %s failed, ret=%d.", what, static_cast<int>(result));
    }
    return result == 0;
}

}  // namespace

uint32_t QOS_TLM_ReadBufMonitorStatField(void* object, QosTlmBufMonitorStat* record) {
    if (object == nullptr || record == nullptr) {
        return 1;
    }
    Raw raw = {};
    if (!readColumns(object, *record, raw)) {
        return 1;
    }
    record->queryType = 0;
    record->recordNumber = 1;
    const int copied = strcpy_s(record->ifName, sizeof record->ifName, raw.ifName);
    if (copied != 0) {
        QOS_TLM_DiagErr("%s%d.", kMessages.copyText, copied);
        return 1;
    }
    const bool written = writeTime(raw.end, record->time, "end-time") &&
                         writeTime(raw.start, record->startTime, "start-time") &&
                         writeTime(raw.peak, record->peakTime, "peak-time");
    return written ? 0 : 1;
}

uint32_t QOS_TLM_TimeStampToDateTime(uint64_t seconds, char* text, uint32_t milliseconds) {
    if (text == nullptr) {
        return 1;
    }
    KatCalendar calendar = {};
    KAT_SystimeSec2Time(seconds, &calendar);
    const int length =
        sprintf_s(text, QOS_TLM_DATE_TIME_SIZE, "%04u-%02u-%02u %02u:%02u:%02u.%03u", calendar.year, calendar.month,
                  calendar.day, calendar.hour, calendar.minute, calendar.second, milliseconds);
    if (length == -1) {
        QOS_TLM_DiagErr("DATETIME to String failed.");
        return 1;
    }
    return 0;
}

uint32_t QOS_ConvertTimestampToDateTime(uint64_t seconds, QosTlmDateTime* dateTime) {
    if (dateTime == nullptr) {
        return 1;
    }
    KatCalendar calendar = {};
    const uint32_t result = KAT_SystimeSec2Time(seconds, &calendar);
    *dateTime = {calendar.year, calendar.month, calendar.day, calendar.hour, calendar.minute, calendar.second};
    return result;
}

QOS_TLM_DEFINE_COMMON_STEPS(BufMonitorStat)
QOS_TLM_DEFINE_CONDITION(BufMonitorStat)

uint32_t QOS_TLM_QueryTmBufMonitorStatFromDb(const QosTlmQueryParam* request, QosTlmSampleData* sampleData) {
    return Cycle::query(request, sampleData);
}

uint32_t QOS_TLM_GetBufMonitorGpbStartNode(QosTlmNode** root, QosTlmNode** list) {
    return Cycle::gpbStartNode(root, list);
}

uint32_t QOS_TLM_GetBufMonitorJsonStartNode(QosTlmNode** root, QosTlmNode** list) {
    return Cycle::jsonStartNode(root, list);
}

uint32_t QOS_TLM_CheckBufMonitorStat(uint32_t previousFlag, const Record* record, const QosTlmQueryParam* request) {
    if (record == nullptr || request == nullptr) {
        return 0;
    }
    return QOS_TLM_IsSentBufMonitorStat(previousFlag, record) == 0 ? QOS_TLM_IsConditionBufMonitorStat(record, request)
                                                                   : 0;
}

uint32_t QOS_TLM_IsBufMonRecordCntOver(const Record* record, uint32_t* count) {
    return Cycle::isBatchFull(record, count);
}
