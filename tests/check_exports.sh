#!/bin/sh
# Fails when the shared library exports a name that is not the library's own
# (spdlog and fmt code compiled into it must stay inside it), or an internal
# name that no installed header declares (test hooks are reached through the
# static library, never through the installed one).
set -eu
lib="$1"
include_dir="$2"
names=$(nm -D -C --defined-only "$lib" | cut -d' ' -f3-)
foreign=$(printf '%s\n' "$names" | grep -v 'norvane' | grep -v -E '^(_init|_fini|_edata|_end|__bss_start)$' \
  | grep -v -E '^(utf8_to_locale|locale_to_utf8)\(' || true)
dependency=$(printf '%s\n' "$names" | grep -E '^(spdlog|fmt)::' || true)
undeclared=""
for name in $(printf '%s\n' "$names" | grep -o -E '^norvane::details::[A-Za-z_0-9]+' | sort -u | sed 's/^norvane::details:://'); do
  grep -r -q -w "$name" "$include_dir" || undeclared="$undeclared
norvane::details::$name"
done
if [ -n "$foreign$dependency$undeclared" ]; then
  echo "names exported that are not the library's own, or that no installed header declares:"
  printf '%s\n%s\n%s\n' "$foreign" "$dependency" "$undeclared" | sed '/^$/d'
  exit 1
fi
echo "exports: $(printf '%s\n' "$names" | grep -c norvane) names, all the library's own and all declared"
