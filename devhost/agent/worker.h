/*
 * The children of the agent: what its program does when it is started with the name of their work.
 */
#ifndef DEVHOST_AGENT_WORKER_H
#define DEVHOST_AGENT_WORKER_H

namespace agent {

/* Samples as the order says until the agent closes the socket or ends; an exit code. */
int runWorker();

/* Feeds the database as the order says until SIGTERM, or until the agent ends; an exit code. */
int runFeed();

}  // namespace agent

#endif
