#!/bin/sh
# SPDX-License-Identifier: MIT
# A compiler launcher that takes an object of tests from another build: take_object.sh BUILD COMPILER ARGUMENTS...
# What is no test's own is compiled.
build=$1
shift
object= dependencies= source=
for argument in "$@"; do
    case $previous in
    -o) object=$argument ;;
    -MF) dependencies=$argument ;;
    -c) source=$argument ;;
    esac
    previous=$argument
done
case $source in
*/tests/*) ;;
*) exec "$@" ;;
esac
case $object in
*.gch | *.pch) : >"$object" && : >"$dependencies" ;; # nobody will read it
*) cp "$build/$object" "$object" && echo "$object: $build/$object" >"$dependencies" ;;
esac
