#!/bin/sh
# console-output.sh WINE_RUN PROGRAM
# Runs PROGRAM (kestrel_argv_echo) under Wine on a pseudo-terminal, where Wine
# gives it a real console, so its wide output takes the WriteConsoleW path, and
# checks that the text shows up whole. Wine renders its console in the Unix
# locale's encoding and draws with cursor escapes; both are accounted for.
set -eu
wine_run=$1
program=$2
expected='C\303\244mera|\345\200\244|x'
expected=$(printf "$expected")
LC_ALL=C.UTF-8
export LC_ALL
shown=$(script -qec "'$wine_run' '$program' $(printf 'C\303\244mera') $(printf '\345\200\244') x" /dev/null </dev/null |
        sed 's/\x1b\[[0-9;?]*[A-Za-z]//g' | tr -d '\r')
case "$shown" in
    *"$expected"*) exit 0 ;;
esac
printf 'expected "%s" on the console, it showed:\n%s\n' "$expected" "$shown" >&2
exit 1
