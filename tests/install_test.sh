#!/bin/sh
# An installed modLA, used as docs/embedding.md tells: its commands are run, in its order, beside the examples.
# install_test.sh SOURCE BUILD
set -eu
export LC_ALL=C
source=$1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
fail() { echo "FAILED: $*"; exit 1; }
# The code blocks of a language in a document.
blocks() { sed -n "/^\`\`\`$1\$/,/^\`\`\`\$/{/^\`\`\`/d;p;}" "$2"; }

cmake --install "$2" --prefix "$scratch/first" >"$scratch/log"
mv "$scratch/first" "$scratch/prefix"  # nothing knows where it was installed
prefix=$scratch/prefix
export PATH="$prefix/bin:$PATH" PKG_CONFIG_PATH=$prefix/lib/pkgconfig CMAKE_PREFIX_PATH=$prefix

# The console finds its library.
[ "$(modla -e 'Det(101, matrix([[1, 2], [3, 4]]))')" = 99 ] || fail "the console does not work"
LD_DEBUG=files modla -e 1 2>&1 | grep -q "init: $prefix/bin/../lib/i386-linux-gnu/libmodla.so.1" ||
    fail "the console did not load the library that was installed with it"
library=$prefix/lib/i386-linux-gnu/libmodla.so
[ "$(readlink -f "$library")" = "$(readlink -f "$library.1")" ] || fail "libmodla.so and libmodla.so.1 differ"
[ "$(ls "$prefix/include")" = modla.h ] || fail "more than modla.h is in include/"
for file in "$library" "$prefix/bin/modla"; do
    readelf -dW "$file" | grep -E 'RPATH|RUNPATH' && fail "$file has a search path"
    for needed in $(readelf -dW "$file" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p'); do
        grep -qF "$needed" "$prefix/share/doc/modla/NOTICE" || fail "NOTICE does not name $needed, for $file"
    done
done

# The commands and the CMake project of the document.
mkdir "$scratch/work"
cd "$scratch/work"
cp "$prefix"/share/doc/modla/examples/*.c "$prefix"/share/doc/modla/examples/*.py .
blocks cmake "$source/docs/embedding.md" >CMakeLists.txt
blocks sh "$source/docs/embedding.md" >commands
export LD_LIBRARY_PATH=$prefix/lib/i386-linux-gnu
sh -e commands >output 2>&1 || { cat output; fail "a command of docs/embedding.md"; }
for example in kernels minimal_host coprocess; do cat "$source/examples/$example.expected"; done >expected
tail -n "$(wc -l <expected)" output | diff expected -
build/kernels | diff "$source/examples/kernels.expected" -
cmake -S . -B build64 >output 2>&1 && fail "a 64-bit project found the library"
grep -q 'version: .*(32bit)' output || { cat output; fail "a 64-bit project is not told why"; }

# The manual names all functions and all options.
page() { gzip -dc "$prefix/share/man/man$1/modla.$1.gz" | sed 's/\\-/-/g'; }
page 3 >modla.3
for name in $(sed -n 's/^    \([A-Za-z_0-9]*\);$/\1/p' "$source/cmake/modla.map"); do
    grep -q "\b$name(" modla.3 || fail "modla(3) does not name $name"
done
page 1 | grep -q -e --library || fail "modla(1) does not tell the options"
if command -v man >/dev/null; then
    for section in 1 3; do
        man --warnings -E UTF-8 -l -Tutf8 -Z "$prefix/share/man/man$section/modla.$section.gz" 2>&1 >/dev/null |
            grep . && fail "modla($section) is not well formed"
    done
fi
# The Debian package: unpacked, it works, and it asks for the packages of all libraries.
if command -v dpkg-shlibdeps >/dev/null; then
    (cd "$scratch" && cpack --config "$2/CPackConfig.cmake" -B "$scratch/package") >>"$scratch/log" 2>&1
    package=$(echo "$scratch"/package/modla_*_i386.deb)
    dpkg-deb -x "$package" "$scratch/unpacked"
    depends=$(dpkg-deb -f "$package" Depends | sed 's/([^)]*)//g')
    for needed in $(readelf -dW "$prefix/bin/modla" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p'); do
        name=$(dpkg -S "/*lib/i386-linux-gnu/$needed" | sed 's/:.*//;q')
        case ",$depends," in *[\ ,]"$name"[\ ,]*) ;; *) fail "$needed is of $name; the package asks for $depends" ;; esac
    done
    unset LD_LIBRARY_PATH
    "$scratch/unpacked/usr/bin/modla" "$source/examples/linear_system.modla" |
        diff "$source/examples/linear_system.expected" -
    for file in copyright changelog.gz; do
        [ -s "$scratch/unpacked/usr/share/doc/modla/$file" ] || fail "the package lacks $file"
    done
fi
echo "$(wc -l <commands) lines of commands, $(find "$prefix" -type f | wc -l) files"
