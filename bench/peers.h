/*
 * Other ways to encode queue statistics, for tables that fit in one batch: generated protobuf C++ on an arena,
 * protozero, nanopb, RapidJSON's writer, and cJSON used directly without a tree.
 *
 * Each run reads the rows through the same accessors as the plug-in, encodes them straight into a sample buffer of the
 * host's allocator and uploads that.
 */
#ifndef BENCH_PEERS_H
#define BENCH_PEERS_H

namespace bench::peers {

void protobuf();
void protozero();
void nanopb();
void rapidJson();
void cJson();

}  // namespace bench::peers

#endif
