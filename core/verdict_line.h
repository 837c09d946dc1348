// SPDX-License-Identifier: MIT
// The last act of a cycle: its note is closed, and told. Loop thread.
#pragma once

struct t_device;

// The verdict is carried out; null for none.
void tell_verdict(const t_device *winner);
