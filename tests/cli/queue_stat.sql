-- The queue statistics of a device, in the database that is open: the table alone, or with rows added by a case.
PRAGMA journal_mode = WAL;
CREATE TABLE queue_stat (
    ifIndex INTEGER NOT NULL,
    ifName TEXT NOT NULL,
    queueId INTEGER NOT NULL,
    passPackets INTEGER NOT NULL,
    passBytes INTEGER NOT NULL,
    passPktRate INTEGER NOT NULL,
    passBytRate INTEGER NOT NULL,
    dropPackets INTEGER NOT NULL,
    dropBytes INTEGER NOT NULL,
    dropPktRate INTEGER NOT NULL,
    dropBytRate INTEGER NOT NULL,
    PRIMARY KEY (ifIndex, queueId));
