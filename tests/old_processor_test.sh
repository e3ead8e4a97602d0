#!/bin/sh
# The library on processors of its time: results are right where there is SSE2 and nothing newer, whichever kernels
# OpenBLAS picks, and a processor without SSE2 is refused at load.
# old_processor_test.sh DIRECTORY    (of the built tests and the library)
set -eu
cd "$1"
failed=0
fail() { echo "FAILED: $*"; failed=1; }

# Row operations and products of doubles through CBLAS, with the largest sums.
smoke() {
    "$@" ./test_kernels --gtest_filter='ProductKernels/1.HoldTheLargestSums:*.HoldsSumsUpToTheLimit'
}

# old NAME MODEL: the tests on a processor of QEMU's that OpenBLAS takes for a NAME.
old() {
    qemu-i386 -cpu "$2" ./old_processor_probe sse3 2>/dev/null && fail "$2 knows SSE3, too new for this test"
    core=$(OPENBLAS_VERBOSE=2 qemu-i386 -cpu "$2" ./old_processor_probe ./libmodla.so 2>&1)
    [ "$core" = "Core: $1" ] || fail "$2: expected the kernels for $1, got $core"
    smoke qemu-i386 -cpu "$2" >old_processor.log 2>&1 || { fail "$2"; tail -n 30 old_processor.log; }
    echo "$1: $(grep -c '  OK ' old_processor.log) tests"
}

qemu-i386 -cpu pentium3,+sse2 ./old_processor_probe ./libmodla.so >/dev/null || fail "SSE2 is not enough"
for model in pentium2 pentium3; do
    answer=$(qemu-i386 -cpu $model ./old_processor_probe ./libmodla.so) && fail "$model: the library was loaded"
    case $answer in *"CPU ISA level is lower than required") ;; *) fail "$model: $answer" ;; esac
done

old Northwood pentium3,+sse2,family=15,model=2
# (QEMU rounds what it loads, as no processor does.)
qemu-i386 -cpu pentium3,+sse2 ./test_ring --gtest_filter='-*Suitable*' \
    >old_processor.log 2>&1 || { fail "scalar"; tail -n 30 old_processor.log; }
old Opteron_SSE3 athlon,family=15,model=5

# The other kernels of OpenBLAS, as far as this processor can run them.
for core in Katmai Banias Prescott Core2 Penryn Nehalem Barcelona Bobcat Atom Nano; do
    smoke env OPENBLAS_CORETYPE=$core >old_processor.log 2>&1 || { fail "$core"; tail -n 30 old_processor.log; }
done
exit $failed
