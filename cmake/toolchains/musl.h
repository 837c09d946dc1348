// SPDX-License-Identifier: MIT
// What the headers of libstdc++, which were set up for glibc, ask of a C library and musl does not have; read before
// every C++ source. The daemon takes templates from those headers only, so it is enough that they compile.
#pragma once

#define __GLIBC_PREREQ(major, minor) 0
#define __locale_t locale_t
#define pthread_cond_clockwait(condition, mutex, clock, until) pthread_cond_timedwait(condition, mutex, until)

enum { _ISupper, _ISlower, _ISalpha, _ISdigit, _ISxdigit, _ISspace };
enum { _ISprint, _IScntrl, _ISpunct, _ISalnum, _ISgraph, _ISblank };
