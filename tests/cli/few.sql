-- Three queues. A number above 2^63 is stored as the negative number with the same bits: here 18446744073709551615 bytes
-- passed and 12345678901234567890 bytes discarded, beside 2^32 + 100 packets passed.
INSERT INTO queue_stat VALUES
    (7, 'eth1/0/1', 0, 1000, 64000, 10, 640, 1, 64, 0, 0),
    (7, 'eth1/0/1', 5, 4294967396, -1, 2, 128, 3, -6101065172474983726, 4, 256),
    (8, 'ETH1/0/12', 7, 0, 0, 0, 0, 0, 0, 0, 0);
