/*
 * What is compared with what. Times are of whole sampling passes through the plug-in's entry points unless a name says
 * otherwise; before anything is timed, both sides must have given the same bytes or the same values.
 */
#ifndef BENCH_COMPARISONS_H
#define BENCH_COMPARISONS_H

#include <vector>

#include "bench/ratio.h"

namespace bench {

std::vector<Comparison> comparisons();

}  // namespace bench

#endif
