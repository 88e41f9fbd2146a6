/*
 * Records as gNMI values.
 */
#ifndef DEVHOST_GNMI_VALUES_H
#define DEVHOST_GNMI_VALUES_H

#include "devhost/gnmi/paths.h"
#include "devhost/sampling/records.h"
#include "gnmi.pb.h"

namespace gnmi {

/* Throws Fault for an encoding that is not served. */
void checkEncoding(Encoding encoding);

/*
 * Adds the updates of a row, or of the leaf of it that is addressed: PROTO has one for each leaf, the others have the
 * row as one object. The bytes that they take.
 */
size_t addUpdates(Notification& notification, const Addressed& what, const host::RowKey& row,
                  const host::Record& record, Encoding encoding, uint32_t duplicates);

/* Notifications are ended when they have so many bytes; what is added last brings a few thousand at most. */
inline constexpr size_t kNotificationSize = size_t{256} << 10U;

}  // namespace gnmi

#endif
