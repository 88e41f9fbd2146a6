/*
 * The texts of --where and --threshold as entries of a sampling request. Each call adds one entry to a request that
 * began as zeros, or throws UsageError, which names what the path would take. A path that is not in the catalogue (null
 * entry) takes none.
 */
#ifndef DEVHOST_CLI_REQUEST_H
#define DEVHOST_CLI_REQUEST_H

#include <string>
#include <string_view>

#include "devhost/cli/catalogue.h"
#include "nivex_qos/sample.h"

namespace host {

/* "FIELD=VALUE" */
void addCondition(QosTlmQueryParam& request, const std::string& alias, const Catalogued* entry, std::string_view text);

/* "FIELD>=VALUE", or another operator */
void addThreshold(QosTlmQueryParam& request, const std::string& alias, const Catalogued* entry, std::string_view text);

/* What to say when no record passed: the patterns that the request asks for. Empty when it has none. */
std::string patternHint(const QosTlmQueryParam& request, const std::string& alias, const Catalogued* entry);

}  // namespace host

#endif
