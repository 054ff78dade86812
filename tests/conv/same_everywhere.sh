#!/usr/bin/env bash
# The conversions give the same results whichever compiler and optimisation built them: one hash
# over a fixed run, from gcc and clang at -O0, -O2 and -O3.
#
#   same_everywhere.sh SOURCE_DIR      exit status 77: skipped, no clang

set -euo pipefail
cd "$1"
for compiler in g++ clang++; do
  if ! command -v "$compiler" >/dev/null; then
    echo "[  SKIPPED ] $compiler is not installed, so there is nothing to compare with"
    exit 77
  fi
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
shopt -s nullglob
sources=(conv/*.cpp conv/kernels/*.cpp frame/processor.cpp)
flags=(-std=gnu++20 -iquote . -fPIC -fno-exceptions -fno-rtti -fsemantic-interposition)

# The run itself is built once, so that only the conversions differ. They stand in a shared object,
# as they are shipped.
g++ -std=gnu++20 -iquote . -O2 -c -o "$work/hash.o" tests/conv/hash.cpp
g++ -std=gnu++20 -iquote . -O2 -c -o "$work/model.o" tests/conv/model.cpp
g++ -std=gnu++20 -iquote . -O2 -c -o "$work/members.o" tests/conv/members.cpp

one() { # one COMPILER LEVEL: prints the hash
  local compiler=$1 level=$2 folder=$work/$1$2 source objects=()
  mkdir "$folder"
  for source in "${sources[@]}"; do
    objects+=("$folder/${source//\//_}.o")
    "$compiler" "${flags[@]}" "$level" -c -o "${objects[-1]}" "$source"
  done
  "$compiler" -shared -o "$folder/libconv.so" "${objects[@]}"
  g++ -o "$folder/hash" "$work"/{hash,model,members}.o -Wl,--no-as-needed -L"$folder" -lconv \
    -Wl,-rpath,"$folder"
  "$folder/hash"
}

first=
status=0
for compiler in g++ clang++; do
  for level in -O0 -O2 -O3; do
    hash=$(one "$compiler" "$level")
    echo "$hash  $compiler $level"
    [ -n "$first" ] || first=$hash
    [ "$hash" = "$first" ] || status=1
  done
done
[ $status = 0 ] || echo "the hashes differ"
exit $status
