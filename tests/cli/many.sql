-- 300 queues of 38 interfaces, with counters small enough for a full batch of JSON.
WITH RECURSIVE queue(n) AS (SELECT 0 UNION ALL SELECT n + 1 FROM queue WHERE n < 299)
INSERT INTO queue_stat SELECT 1 + n / 8, 'eth' || (n / 8), n % 8, n, 64 * n, 0, 0, n % 3, 0, 0, 0 FROM queue;
