-- Rows behind the examples of this folder: one record per path. A counter above 2^53 shows what JSON does to them.

CREATE TABLE port_ecn_stat (ifIndex INT NOT NULL, ifName TEXT NOT NULL, packets INT NOT NULL);
INSERT INTO port_ecn_stat VALUES (17, 'ETH1/0/3', 120007);

CREATE TABLE port_buf_stat (slotId INT NOT NULL, slotIdStr TEXT NOT NULL, ifIndex INT NOT NULL, ifName TEXT
    NOT NULL, totalBuff INT NOT NULL, currentUsed INT NOT NULL, remained INT NOT NULL, peakUsed INT NOT NULL,
    avgUsed INT NOT NULL);
INSERT INTO port_buf_stat VALUES (1, '1', 17, 'ETH1/0/3', 1200000, 240000, 960000, 480000, 120000);

CREATE TABLE queue_buf_stat (slotId INT NOT NULL, slotIdStr TEXT NOT NULL, ifIndex INT NOT NULL, ifName TEXT
    NOT NULL, queueId INT NOT NULL, curUsed INT NOT NULL, peakUsed INT NOT NULL, avgUsed INT NOT NULL,
    totalBuf INT NOT NULL);
INSERT INTO queue_buf_stat VALUES (1, '1', 17, 'ETH1/0/3', 5, 24000, 48000, 12000, 120000);

CREATE TABLE queue_stat (ifIndex INT NOT NULL, ifName TEXT NOT NULL, queueId INT NOT NULL, passPackets INT NOT
    NULL, passBytes INT NOT NULL, passPktRate INT NOT NULL, passBytRate INT NOT NULL, dropPackets INT NOT
    NULL, dropBytes INT NOT NULL, dropPktRate INT NOT NULL, dropBytRate INT NOT NULL);
INSERT INTO queue_stat VALUES (17, 'ETH1/0/3', 5, 9007199254740993, 240014, 360021, 480028, 600035, 720042,
    840049, 960056);

CREATE TABLE queue_drop_stat (ifIndex INT NOT NULL, ifName TEXT NOT NULL, queue0DropByts INT NOT NULL,
    queue0DropPkts INT NOT NULL, queue1DropByts INT NOT NULL, queue1DropPkts INT NOT NULL, queue2DropByts INT
    NOT NULL, queue2DropPkts INT NOT NULL, queue3DropByts INT NOT NULL, queue3DropPkts INT NOT NULL,
    queue4DropByts INT NOT NULL, queue4DropPkts INT NOT NULL, queue5DropByts INT NOT NULL, queue5DropPkts INT
    NOT NULL, queue6DropByts INT NOT NULL, queue6DropPkts INT NOT NULL, queue7DropByts INT NOT NULL,
    queue7DropPkts INT NOT NULL);
INSERT INTO queue_drop_stat VALUES (17, 'ETH1/0/3', 120007, 240014, 360021, 480028, 600035, 720042, 840049,
    960056, 1080063, 1200070, 1320077, 1440084, 1560091, 1680098, 1800105, 1920112);

CREATE TABLE ing_port_drop_stat (ifIndex INT NOT NULL, ifName TEXT NOT NULL, dropByts INT NOT NULL, dropPkts
    INT NOT NULL);
INSERT INTO ing_port_drop_stat VALUES (17, 'ETH1/0/3', 120007, 240014);

CREATE TABLE tm_chip_buf_stat (slotId TEXT NOT NULL, totalBuf INT NOT NULL, usedBuf INT NOT NULL, usedPct INT
    NOT NULL);
INSERT INTO tm_chip_buf_stat VALUES ('1/2', 12000000, 4920000, 41);

CREATE TABLE ing_buf_usage_stat (if_index INT NOT NULL, queue INT NOT NULL, if_name TEXT NOT NULL, is_lossless
    INT NOT NULL, is_pfc_dynamic INT NOT NULL, current_guaranteed INT NOT NULL, total_guaranteed INT NOT NULL,
    current_buffer INT NOT NULL, total_buffer INT NOT NULL, current_headroom INT NOT NULL, total_headroom INT
    NOT NULL);
INSERT INTO ing_buf_usage_stat VALUES (17, 3, 'ETH1/0/3', 1, 1, 1001, 2002, 3003, 4004, 5005, 6006);

CREATE TABLE buffer_monitor_result (if_index INT NOT NULL, queue_index INT NOT NULL, ifName TEXT NOT NULL,
    used_buf INT NOT NULL, percent INT NOT NULL, time_stamp INT NOT NULL, milli_second INT NOT NULL,
    start_used_buf INT NOT NULL, start_percent INT NOT NULL, start_time_stamp INT NOT NULL, start_milli_second
    INT NOT NULL, peak_used_buf INT NOT NULL, peak_percent INT NOT NULL, peak_time_stamp INT NOT NULL,
    peak_milli_second INT NOT NULL, slot INT NOT NULL, burst_number INT NOT NULL);
INSERT INTO buffer_monitor_result VALUES (17, 3, 'ETH1/0/3', 62000, 62, 1709802302, 7, 51000, 51, 1709802301,
    250, 88000, 88, 1709802301, 911, 1, 4);
