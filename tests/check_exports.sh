#!/bin/sh
# Fails when the shared library exports a name that is not the library's own:
# spdlog and fmt code compiled into it must stay inside it.
set -eu
lib="$1"
names=$(nm -D -C --defined-only "$lib" | cut -d' ' -f3-)
foreign=$(printf '%s\n' "$names" | grep -v 'norvane' | grep -v -E '^(_init|_fini|_edata|_end|__bss_start)$' \
  | grep -v -E '^(utf8_to_locale|locale_to_utf8)\(' || true)
dependency=$(printf '%s\n' "$names" | grep -E '^(spdlog|fmt)::' || true)
if [ -n "$foreign$dependency" ]; then
  echo "names exported that are not the library's own:"
  printf '%s\n%s\n' "$foreign" "$dependency" | sed '/^$/d'
  exit 1
fi
echo "exports: $(printf '%s\n' "$names" | grep -c norvane) names, all the library's own"
