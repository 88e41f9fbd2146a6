/*
 * The ledger in numbers, for all that shows them: metrics and the page.
 */
#ifndef DEVHOST_AGENT_FIGURES_H
#define DEVHOST_AGENT_FIGURES_H

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "devhost/agent/ledger.h"
#include "devhost/support/account.h"
#include "devhost/support/figures.h"

namespace agent {

struct NamedLedger {
    std::string name;  // of the subscription
    std::string path;
    SubscriptionLedger ledger;
};

/* Figures with the labels "subscription" and "path". */
std::vector<host::Figure> subscriptionFigures(const std::vector<NamedLedger>& ledgers);

/* Figures with the label "output", the dropped records also with "reason"; by the outputs' names. */
std::vector<host::Figure> outputFigures(const std::map<std::string, host::Account>& accounts);

}  // namespace agent

#endif
