/*
 * The tables of the QoS statistics database: the one list from which declarations, accessors and SQL are made.
 *
 * QOS_DB_TABLES(TABLE) expands TABLE(table, columns) for each table; columns is a macro that expands
 * COLUMN(table, column, kind, role) for each column, in the order in which a record is read. kind: UINT32, UINT64, TEXT
 * or BYTE (8-bit number); role: KEY (identifies a record), QUEUE (does so as well: a queue number from 0 to
 * QOS_DB_LAST_QUEUE; the plug-in takes a record with a higher one for a record of another interface) or VALUE.
 */
#ifndef PLATFORM_QOS_DB_TABLES_H
#define PLATFORM_QOS_DB_TABLES_H

#define QOS_DB_LAST_QUEUE 7

/* Packets that ECN marked, per interface. */
#define QOS_DB_COLUMNS_PORT_ECN_STAT(COLUMN, table) \
    COLUMN(table, ifIndex, UINT32, KEY)             \
    COLUMN(table, ifName, TEXT, VALUE)              \
    COLUMN(table, packets, UINT64, VALUE)

/* Buffer usage of a port. */
#define QOS_DB_COLUMNS_PORT_BUF_STAT(COLUMN, table) \
    COLUMN(table, slotId, UINT32, VALUE)            \
    COLUMN(table, slotIdStr, TEXT, VALUE)           \
    COLUMN(table, ifIndex, UINT32, KEY)             \
    COLUMN(table, ifName, TEXT, VALUE)              \
    COLUMN(table, totalBuff, UINT64, VALUE)         \
    COLUMN(table, currentUsed, UINT64, VALUE)       \
    COLUMN(table, remained, UINT64, VALUE)          \
    COLUMN(table, peakUsed, UINT64, VALUE)          \
    COLUMN(table, avgUsed, UINT64, VALUE)

/* Buffer usage of a queue. */
#define QOS_DB_COLUMNS_QUEUE_BUF_STAT(COLUMN, table) \
    COLUMN(table, slotId, UINT32, VALUE)             \
    COLUMN(table, slotIdStr, TEXT, VALUE)            \
    COLUMN(table, ifIndex, UINT32, KEY)              \
    COLUMN(table, ifName, TEXT, VALUE)               \
    COLUMN(table, queueId, UINT32, QUEUE)            \
    COLUMN(table, curUsed, UINT64, VALUE)            \
    COLUMN(table, peakUsed, UINT64, VALUE)           \
    COLUMN(table, avgUsed, UINT64, VALUE)            \
    COLUMN(table, totalBuf, UINT64, VALUE)

/* Passed and discarded packets and bytes of a queue, and their rates per second. */
#define QOS_DB_COLUMNS_QUEUE_STAT(COLUMN, table) \
    COLUMN(table, ifIndex, UINT32, KEY)          \
    COLUMN(table, ifName, TEXT, VALUE)           \
    COLUMN(table, queueId, UINT32, QUEUE)        \
    COLUMN(table, passPackets, UINT64, VALUE)    \
    COLUMN(table, passBytes, UINT64, VALUE)      \
    COLUMN(table, passPktRate, UINT64, VALUE)    \
    COLUMN(table, passBytRate, UINT64, VALUE)    \
    COLUMN(table, dropPackets, UINT64, VALUE)    \
    COLUMN(table, dropBytes, UINT64, VALUE)      \
    COLUMN(table, dropPktRate, UINT64, VALUE)    \
    COLUMN(table, dropBytRate, UINT64, VALUE)

/* Dropped bytes and packets of the eight queues of an interface. */
#define QOS_DB_COLUMNS_QUEUE_DROP_STAT(COLUMN, table) \
    COLUMN(table, ifIndex, UINT32, KEY)               \
    COLUMN(table, ifName, TEXT, VALUE)                \
    COLUMN(table, queue0DropByts, UINT64, VALUE)      \
    COLUMN(table, queue0DropPkts, UINT64, VALUE)      \
    COLUMN(table, queue1DropByts, UINT64, VALUE)      \
    COLUMN(table, queue1DropPkts, UINT64, VALUE)      \
    COLUMN(table, queue2DropByts, UINT64, VALUE)      \
    COLUMN(table, queue2DropPkts, UINT64, VALUE)      \
    COLUMN(table, queue3DropByts, UINT64, VALUE)      \
    COLUMN(table, queue3DropPkts, UINT64, VALUE)      \
    COLUMN(table, queue4DropByts, UINT64, VALUE)      \
    COLUMN(table, queue4DropPkts, UINT64, VALUE)      \
    COLUMN(table, queue5DropByts, UINT64, VALUE)      \
    COLUMN(table, queue5DropPkts, UINT64, VALUE)      \
    COLUMN(table, queue6DropByts, UINT64, VALUE)      \
    COLUMN(table, queue6DropPkts, UINT64, VALUE)      \
    COLUMN(table, queue7DropByts, UINT64, VALUE)      \
    COLUMN(table, queue7DropPkts, UINT64, VALUE)

/* Bytes and packets dropped on ingress, per interface. */
#define QOS_DB_COLUMNS_ING_PORT_DROP_STAT(COLUMN, table) \
    COLUMN(table, ifIndex, UINT32, KEY)                  \
    COLUMN(table, ifName, TEXT, VALUE)                   \
    COLUMN(table, dropByts, UINT64, VALUE)               \
    COLUMN(table, dropPkts, UINT64, VALUE)

/* Buffer usage of a slot's traffic-manager chip. */
#define QOS_DB_COLUMNS_TM_CHIP_BUF_STAT(COLUMN, table) \
    COLUMN(table, slotId, TEXT, KEY)                   \
    COLUMN(table, totalBuf, UINT64, VALUE)             \
    COLUMN(table, usedBuf, UINT64, VALUE)              \
    COLUMN(table, usedPct, UINT32, VALUE)

/* Ingress buffer usage of a queue. */
#define QOS_DB_COLUMNS_ING_BUF_USAGE_STAT(COLUMN, table) \
    COLUMN(table, if_index, UINT32, KEY)                 \
    COLUMN(table, queue, UINT32, QUEUE)                  \
    COLUMN(table, if_name, TEXT, VALUE)                  \
    COLUMN(table, is_lossless, UINT32, VALUE)            \
    COLUMN(table, is_pfc_dynamic, BYTE, VALUE)           \
    COLUMN(table, current_guaranteed, UINT32, VALUE)     \
    COLUMN(table, total_guaranteed, UINT32, VALUE)       \
    COLUMN(table, current_buffer, UINT32, VALUE)         \
    COLUMN(table, total_buffer, UINT32, VALUE)           \
    COLUMN(table, current_headroom, UINT32, VALUE)       \
    COLUMN(table, total_headroom, UINT32, VALUE)

/* The last buffer burst of a queue: its result, start and peak. */
#define QOS_DB_COLUMNS_BUFFER_MONITOR_RESULT(COLUMN, table) \
    COLUMN(table, if_index, UINT32, KEY)                    \
    COLUMN(table, queue_index, UINT32, QUEUE)               \
    COLUMN(table, ifName, TEXT, VALUE)                      \
    COLUMN(table, used_buf, UINT32, VALUE)                  \
    COLUMN(table, percent, UINT32, VALUE)                   \
    COLUMN(table, time_stamp, UINT64, VALUE)                \
    COLUMN(table, milli_second, UINT32, VALUE)              \
    COLUMN(table, start_used_buf, UINT32, VALUE)            \
    COLUMN(table, start_percent, UINT32, VALUE)             \
    COLUMN(table, start_time_stamp, UINT64, VALUE)          \
    COLUMN(table, start_milli_second, UINT32, VALUE)        \
    COLUMN(table, peak_used_buf, UINT32, VALUE)             \
    COLUMN(table, peak_percent, UINT32, VALUE)              \
    COLUMN(table, peak_time_stamp, UINT64, VALUE)           \
    COLUMN(table, peak_milli_second, UINT32, VALUE)         \
    COLUMN(table, slot, UINT32, VALUE)                      \
    COLUMN(table, burst_number, UINT32, VALUE)

/* In the order of the families. */
#define QOS_DB_TABLES(TABLE)                                     \
    TABLE(port_ecn_stat, QOS_DB_COLUMNS_PORT_ECN_STAT)           \
    TABLE(port_buf_stat, QOS_DB_COLUMNS_PORT_BUF_STAT)           \
    TABLE(queue_buf_stat, QOS_DB_COLUMNS_QUEUE_BUF_STAT)         \
    TABLE(queue_stat, QOS_DB_COLUMNS_QUEUE_STAT)                 \
    TABLE(queue_drop_stat, QOS_DB_COLUMNS_QUEUE_DROP_STAT)       \
    TABLE(ing_port_drop_stat, QOS_DB_COLUMNS_ING_PORT_DROP_STAT) \
    TABLE(tm_chip_buf_stat, QOS_DB_COLUMNS_TM_CHIP_BUF_STAT)     \
    TABLE(ing_buf_usage_stat, QOS_DB_COLUMNS_ING_BUF_USAGE_STAT) \
    TABLE(buffer_monitor_result, QOS_DB_COLUMNS_BUFFER_MONITOR_RESULT)

#endif
