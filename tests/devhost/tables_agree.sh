#!/usr/bin/env bash
# The tables that the simulated device fills agree with each other and, from one round to the next, with time.
#
#   tables_agree.sh PROGRAM_DIR
set -uo pipefail
programs=$(cd "$1" && pwd)
PATH=$programs:$PATH
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch" || exit 1

begin=() end=()
span=1300 # milliseconds of the device per round
fed() {   # DATABASE ROUNDS; its clock begins with the feed, in begin[ROUNDS] at the earliest and end[ROUNDS] at the latest
    begin[$2]=$(date +%s%3N)
    qos-host feed sim --db "$1" --count "$2" --every 13ms --speed 100 --slots 3 --ports 4 --load 150 --seed 7 || exit 1
    end[$2]=$(sqlite3 "$1" 'SELECT time_ms FROM feed')
}
# The state after the first round, in which a second run goes on, and the one before it.
fed first.db 1
fed second.db 2
cp first.db none.db
sqlite3 none.db 'DELETE FROM queue_stat; DELETE FROM buffer_monitor_result'

drops=$(for queue in {0..7}; do
    echo "${drops:+UNION ALL} SELECT ifIndex, $queue AS queueId, queue${queue}DropByts AS bytes, queue${queue}DropPkts AS packets FROM queue_drop_stat"
    drops='more'
done)
failed=0
agrees() { # BEFORE NOW BEGIN LATEST_END
    sqlite3 -bail -cmd "ATTACH '$1' AS before" "$2" >broken <<SQL || failed=1
CREATE TEMP VIEW burst AS SELECT *, start_time_stamp * 1000 + start_milli_second AS start,
    peak_time_stamp * 1000 + peak_milli_second AS peak, time_stamp * 1000 + milli_second AS end
    FROM main.buffer_monitor_result r JOIN (SELECT ifIndex, queueId, totalBuf AS total, slotId FROM main.queue_buf_stat)
    ON ifIndex = if_index AND queueId = queue_index;
-- Of the same burst in both; the clock of the second run began so much later.
CREATE TEMP VIEW both AS SELECT now.*, last.burst_number AS lastNumber, now.start - (last.start_time_stamp * 1000 +
    last.start_milli_second) AS startLater, now.peak - (last.peak_time_stamp * 1000 + last.peak_milli_second) AS
    peakLater, now.end - (last.time_stamp * 1000 + last.milli_second) AS endLater, (now.used_buf, now.percent,
    now.start_used_buf, now.start_percent, now.peak_used_buf, now.peak_percent, now.slot, now.ifName) = (last.used_buf,
    last.percent, last.start_used_buf, last.start_percent, last.peak_used_buf, last.peak_percent, last.slot,
    last.ifName) AS same FROM burst now JOIN before.buffer_monitor_result last USING (if_index, queue_index);

SELECT 'number of rows' AS relation, * FROM (SELECT (SELECT count(*) FROM main.port_ecn_stat) AS a,
    (SELECT count(*) FROM main.port_buf_stat) AS b, (SELECT count(*) FROM main.queue_drop_stat) AS c,
    (SELECT count(*) FROM main.ing_port_drop_stat) AS d, (SELECT count(*) FROM main.tm_chip_buf_stat) AS e,
    (SELECT count(*) FROM main.queue_buf_stat) AS f, (SELECT count(*) FROM main.queue_stat) AS g,
    (SELECT count(*) FROM main.ing_buf_usage_stat) AS h, (SELECT count(*) > 0 FROM burst) AS i)
    WHERE (a, b, c, d, e, f, g, h, i) IS NOT (12, 12, 12, 12, 3, 96, 96, 96, 1);
SELECT 'rate', now.* FROM main.queue_stat now LEFT JOIN before.queue_stat last USING (ifIndex, queueId)
    WHERE now.passPktRate IS NOT (now.passPackets - ifnull(last.passPackets, 0)) * 1000 / $span
    OR now.passBytRate IS NOT (now.passBytes - ifnull(last.passBytes, 0)) * 1000 / $span
    OR now.dropPktRate IS NOT (now.dropPackets - ifnull(last.dropPackets, 0)) * 1000 / $span
    OR now.dropBytRate IS NOT (now.dropBytes - ifnull(last.dropBytes, 0)) * 1000 / $span;
SELECT 'drops of a port and of its queues', * FROM (SELECT * FROM ($drops)
    EXCEPT SELECT ifIndex, queueId, dropBytes, dropPackets FROM main.queue_stat);
SELECT 'usage of a queue', * FROM main.queue_buf_stat
    WHERE peakUsed < curUsed OR peakUsed < avgUsed OR avgUsed <= 0 OR peakUsed > totalBuf;
SELECT 'usage of a port', p.*, used, total FROM main.port_buf_stat p LEFT JOIN (SELECT ifIndex, sum(curUsed) AS used,
    sum(totalBuf) AS total FROM main.queue_buf_stat GROUP BY 1) USING (ifIndex)
    WHERE (currentUsed, totalBuff) IS NOT (used, total) OR totalBuff != currentUsed + remained
    OR peakUsed < currentUsed OR peakUsed < avgUsed OR avgUsed <= 0;
SELECT 'usage of a chip', c.*, used FROM main.tm_chip_buf_stat c LEFT JOIN (SELECT slotIdStr AS slotId,
    sum(curUsed) AS used FROM main.queue_buf_stat GROUP BY 1) USING (slotId)
    WHERE usedBuf IS NOT used OR usedBuf <= 0 OR usedBuf > totalBuf OR usedPct != usedBuf * 100 / totalBuf;
SELECT 'parts of a queue''s buffer', i.*, curUsed, totalBuf FROM main.ing_buf_usage_stat i
    LEFT JOIN main.queue_buf_stat ON if_index = ifIndex AND queue = queueId
    WHERE curUsed IS NOT current_guaranteed + current_buffer + current_headroom
    OR totalBuf IS NOT total_guaranteed + total_buffer + total_headroom;
SELECT 'lossless and dynamic queues', * FROM main.ing_buf_usage_stat WHERE (is_lossless != 0) != (total_headroom > 0)
    OR (is_lossless != 0, is_pfc_dynamic != 0) != (queue IN (3, 4), queue = 4);
SELECT 'burst of a queue', * FROM main.buffer_monitor_result WHERE (if_index, queue_index, slot) NOT IN
    (SELECT ifIndex, queueId, slotId FROM main.queue_buf_stat);
SELECT 'times of a burst', * FROM burst WHERE max(start_milli_second, peak_milli_second, milli_second) > 999
    OR NOT ($3 < start AND start <= peak AND peak < end AND end <= $4);
SELECT 'usage in a burst', * FROM burst
    WHERE NOT (peak_used_buf >= start_used_buf AND start_used_buf > total / 2 AND used_buf <= total / 2);
SELECT 'percent of a burst', * FROM burst WHERE (percent, start_percent, peak_percent)
    != (used_buf * 100 / total, start_used_buf * 100 / total, peak_used_buf * 100 / total);
SELECT 'number of a burst', * FROM burst LEFT JOIN before.buffer_monitor_result last USING (if_index, queue_index)
    WHERE burst.burst_number < max(1, ifnull(last.burst_number, 1));
SELECT 'a burst stays until the next', * FROM both WHERE burst_number = lastNumber AND (NOT same
    OR peakLater != startLater OR endLater != startLater
    OR startLater != (SELECT min(startLater) FROM both WHERE burst_number = lastNumber));
SELECT 'bursts end in both rounds' WHERE (SELECT count(*) FROM before.buffer_monitor_result) > 0
    AND NOT EXISTS (SELECT * FROM both WHERE burst_number > lastNumber);
SELECT 'bursts are lost' FROM before.buffer_monitor_result WHERE (if_index, queue_index) NOT IN
    (SELECT if_index, queue_index FROM burst);
SQL
    if [ -s broken ]; then
        echo "tables_agree: $2: rows that break a relation, $(wc -l <broken) in all:"
        head -n 20 broken
        failed=1
    fi
}
agrees none.db first.db "${begin[1]}" $((end[1] + span))
agrees first.db second.db "${begin[2]}" $((end[2] + 2 * span))
exit $failed
