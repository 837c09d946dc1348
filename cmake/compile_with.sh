#!/bin/sh
# SPDX-License-Identifier: MIT
# A compiler launcher that starts Clang in the place of another compiler: compile_with.sh CLANG INSTEAD-OF ARGUMENTS...
compiler=$1
shift 2
case " $* " in
*" c++-header "*) # a precompiled header of before would be read in the place of the header
    previous=
    for argument in "$@"; do
        [ "$previous" != -o ] || rm -f "$argument"
        previous=$argument
    done
    ;;
esac
exec "$compiler" "$@"
