#!/usr/bin/env bash
# The archive check must find a needed and a doubly defined symbol. Usage: archives_test.sh CHECK_ARCHIVES COMPILER
set -euo pipefail
check=$1 compiler=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

archive() {  # NAME TEXT
    printf '%s\n' "$2" >"$1.cpp"
    "$compiler" -c "$1.cpp" -o "$1.o"
    ar rcs "lib$1.a" "$1.o"
}
expect() {  # STATUS ARCHIVE
    local status=0
    "$check" "lib$2.a" libbackend.a || status=$?
    [ "$status" = "$1" ] || { echo "FAIL $2: exit $status instead of $1"; exit 1; }
}

archive backend 'namespace oru { int openDevice() { return 1; } inline int common() { return 2; } int use() { return common(); } }'
archive clean 'namespace oru { inline int common() { return 2; } int grab() { return common(); } }'
archive needing 'namespace oru { int openDevice(); int grab() { return openDevice(); } }'
archive defining 'namespace oru { int openDevice() { return 3; } }'
expect 0 clean
expect 1 needing
expect 1 defining
expect 2 missing
echo ok
