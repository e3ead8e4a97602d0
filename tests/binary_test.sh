#!/bin/sh
# The shared object: what it exports, what it asks of the process, and how it is hardened.
# binary_test.sh LIBRARY HEADER C-COMPILER OBJECT...     (the objects that are our own, for what the compiler did)
set -eu
export LC_ALL=C
library=$1
header=$2
compiler=$3
shift 3
failed=0
fail() { echo "FAILED: $*"; failed=1; }
# The words of the first list that are not in the second.
beyond() { for word in $1; do case " $2 " in *" $word "*) ;; *) echo "$word" ;; esac; done; }

# Names: exactly the header's.
prototypes=$(mktemp)
trap 'rm -f "$prototypes"' EXIT
"$compiler" -m32 -fsyntax-only -aux-info "$prototypes" -x c "$header"
declared=$(grep -F "$header:" "$prototypes" | grep -v ' static ' | sed -E 's/^[^(]*[ *]([A-Za-z_0-9]+) \(.*/\1/' | sort -u | tr '\n' ' ')
# All are of one version, which is itself listed as an absolute symbol.
version=MODLA_1
symbols=$(nm -D --with-symbol-versions --defined-only "$library" | grep -v " A $version\$")
for name in $(echo "$symbols" | awk '{ print $3 }' | grep -v "@@$version\$"); do fail "$name is not of version $version"; done
exported=$(echo "$symbols" | awk '{ sub(/@.*/, "", $3); print $3 }' | sort | tr '\n' ' ')
[ "$(echo "$declared" | wc -w)" -gt 50 ] || fail "only these declarations were found: $declared"
for name in $(beyond "$exported" "$declared"); do fail "$name is exported but not declared"; done
for name in $(beyond "$declared" "$exported"); do fail "$name is declared but not exported"; done
for name in $(echo "$symbols" | awk '$2 != "T" { print $3 }'); do fail "$name is no function"; done

# What the process has to lend: libc and libm, in versions that every glibc of this century has, and nothing that makes
# threads, takes signals, loads code or seeds rand().
needed=$(readelf -dW "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | tr '\n' ' ')
[ "$needed" = "libm.so.6 libc.so.6 " ] || fail "needed libraries: $needed"
optional="_ITM_deregisterTMCloneTable _ITM_registerTMCloneTable __gmon_start__"
for name in $(nm -D --undefined-only "$library" | awk '{ print $2 }'); do
    case $name in
        *@GLIBC_2.[0-4] | *@GLIBC_2.[0-3].*) ;;
        *) [ -z "$(beyond "$name" "$optional")" ] || fail "$name is defined by no needed library" ;;
    esac
    case ${name%@*} in
        pthread_* | thrd_* | clone | fork | signal | sig* | __sigsetjmp | dlopen | dlsym | srand* | setlocale | feset* | \
            setenv | putenv | atexit | on_exit | __cxa_atexit | abort) fail "the library uses ${name%@*}" ;;
    esac
done

# Relocations that name an exported function could be given another one of that name.
for name in $(readelf -rW "$library" | awk '$5 != "" { print $5 }' | sort -u); do
    [ -n "$(beyond "${name%%@*}" "$exported")" ] || fail "$name can be replaced by the process"
done

dynamic=$(readelf -dW "$library")
segments=$(readelf -lW "$library")
has() { echo "$1" | grep -qE "$2"; }
has "$(readelf -h "$library")" 'Class: +ELF32' || fail "this is no 32-bit library"
has "$dynamic" 'SONAME.*\[libmodla.so.1\]' || fail "the SONAME is not libmodla.so.1"
has "$dynamic" 'RPATH|RUNPATH' && fail "there is a search path for libraries"
has "$dynamic" 'TEXTREL' && fail "there are text relocations"
has "$dynamic" 'FLAGS_1.* NODELETE' && fail "the library cannot be unloaded"
has "$dynamic" '\(FLAGS\).*BIND_NOW' || fail "symbols are not bound at load time"
has "$segments" 'GNU_RELRO' || fail "relocations are not read-only"
has "$(readelf -SW "$library")" ' \.got\.plt ' && fail "addresses of functions stay writable"
has "$segments" 'GNU_STACK.* RW ' || fail "the stack is executable"
has "$segments" ' RWE ' && fail "a segment is writable and executable"
has "$segments" '^ +TLS ' && fail "there is thread-local storage"
has "$(readelf -nW "$library")" 'x86 ISA needed: x86-64-baseline' || fail "processors without SSE2 are not refused"

# Our own objects: stack protector, fortified calls, tables for a host that unwinds through them.
[ $# -gt 30 ] || fail "only $# objects"
calls=$(nm "$@" 2>/dev/null | awk '$1 == "U" { print $2 }' | sort -u | tr '\n' ' ')
for name in __stack_chk_fail_local __snprintf_chk; do
    [ -z "$(beyond $name "$calls")" ] || fail "no object calls $name"
done
for name in snprintf sprintf strcpy strcat printf; do
    [ -n "$(beyond $name "$calls")" ] || fail "an object calls $name"
done
for object in "$@"; do
    case $object in *avx*) nm -C "$object" | grep ' W ' && fail "the linker may keep the copy in $object for all" ;; esac
    sections=$(readelf -SW "$object")
    has "$sections" ' \.text.* AX ' && ! has "$sections" ' \.eh_frame ' && [ "${object%.S.o}" = "$object" ] &&
        fail "$object cannot be unwound"
done

[ $failed = 0 ] && echo "$(echo "$exported" | wc -w) exported names, all declared; needs $needed"
exit $failed
