#!/bin/sh
# Checks that the object files compiled for AVX-512 (those of the *Widest.cpp files) define
# no weak or unique symbols outside their own "widest" namespace. Such a symbol is an inline
# function or template that a baseline file may define too; the linker keeps one copy, and
# if it kept the AVX-512 one, a processor without AVX-512 would stop on an illegal
# instruction.
# Usage: check-widest-objects.sh BUILD_DIR
objects=$(find "$1" -name '*Widest*.o')
if [ -z "$objects" ]; then
  echo "no *Widest* object under $1"
  exit 1
fi
status=0
for object in $objects; do
  shared=$(nm -C --defined-only "$object" | grep -E ' [WVu] ' | grep -v '::widest::')
  if [ -n "$shared" ]; then
    echo "$object defines symbols another file may share:"
    echo "$shared"
    status=1
  fi
done
exit $status
