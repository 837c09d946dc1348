// SPDX-License-Identifier: MIT
// Names of protocols.
#include "model/records.h"

const char *protocol_name(const t_protocol *protocol)
{
    return protocol ? protocol->name : "null";
}
