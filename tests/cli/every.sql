-- A second row of each table beside the one of docs/samples/example.sql, apart in each field that a request can name.
INSERT INTO port_ecn_stat VALUES (18, 'ETH1/0/4', 4294967303);
INSERT INTO port_buf_stat VALUES (66, '1/2', 18, 'ETH1/0/4', 5, 4, 3, 2, 1);
INSERT INTO queue_buf_stat VALUES (66, '1/2', 18, 'ETH1/0/4', 4, 4, 3, 2, 1);
INSERT INTO queue_stat VALUES (18, 'ETH1/0/4', 6, 8, 7, 6, 5, 4, 3, 2, 1);
INSERT INTO queue_drop_stat VALUES (18, 'ETH1/0/4', 16, 15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1);
INSERT INTO ing_port_drop_stat VALUES (18, 'ETH1/0/4', 2, 1);
INSERT INTO tm_chip_buf_stat VALUES ('3', 3, 2, 1);
INSERT INTO ing_buf_usage_stat VALUES (18, 4, 'ETH1/0/4', 1, 0, 6, 5, 4, 3, 2, 1), (18, 5, 'ETH1/0/4', 0, 0, 6, 5, 4, 3, 2, 1);
INSERT INTO buffer_monitor_result VALUES (18, 4, 'ETH1/0/4', 11, 10, 1709802309, 8, 8, 7, 1709802306, 5, 6, 5, 1709802307, 2, 1, 9);
-- What a double holds, so that JSON says the same.
UPDATE queue_stat SET passPackets = 9 WHERE ifIndex = 17;
