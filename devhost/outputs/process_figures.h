/*
 * What the kernel knows of this process, under the names that Prometheus' client libraries use.
 */
#ifndef DEVHOST_OUTPUTS_PROCESS_FIGURES_H
#define DEVHOST_OUTPUTS_PROCESS_FIGURES_H

#include <vector>

#include "devhost/support/figures.h"

namespace outputs {

/* Of this moment; what cannot be read is left out. */
std::vector<host::Figure> processFigures();

}  // namespace outputs

#endif
