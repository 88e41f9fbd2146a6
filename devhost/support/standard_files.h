/*
 * Standard input, output and error.
 */
#ifndef DEVHOST_SUPPORT_STANDARD_FILES_H
#define DEVHOST_SUPPORT_STANDARD_FILES_H

namespace host {

/*
 * Puts /dev/null in the place of those that are closed: the next file that is opened would have its number, and take
 * the output or the messages.
 */
void keepStandardFiles();

}  // namespace host

#endif
