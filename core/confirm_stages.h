// SPDX-License-Identifier: MIT
// Confirming candidates without a discovery answer: who has the gateway behind it (ARP), and who reaches a name server
// (DNS)? Timer callbacks on the loop thread; both block it while the probes wait, the DNS probe for at most three
// seconds.
//
// Ranking: one answering port wins; several are told apart by DNS, the first in list order whose query is answered;
// when DNS settles nothing, the head of the list, which is the port of highest priority.
#pragma once

extern "C" {
#include <libubox/uloop.h>
}

void uloop_wan_detect_using_arp(uloop_timeout *timer);
void uloop_wan_detect_using_dns(uloop_timeout *timer);
