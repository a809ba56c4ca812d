#!/usr/bin/env bash
# Installs the build into a temporary prefix, moves the installed tree, and
# builds the README's example against it as a user would: with pkg-config and
# with CMake's find_package. Both programs must run to a result: success, or
# a "<code>: <message>" line when no printer listens on the loopback port.
#   install_example.sh BUILD_DIR SOURCE_DIR "EXTRA_C_FLAGS"
set -euo pipefail
build_dir=$1
source_dir=$2
extra_flags=${3:-}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
  echo "FAIL: $*"
  exit 1
}

cmake --install "$build_dir" --prefix "$work/staged" >"$work/install.log" ||
  { cat "$work/install.log"; fail "cmake --install"; }
# Nothing in the installed files may still point at the staging prefix.
mv "$work/staged" "$work/prefix"
prefix=$work/prefix

# The example exactly as the README shows it.
awk '/^## /{ section = ($0 == "## Example") } section && /^```c$/{ inside = 1; next }
     inside && /^```$/{ exit } inside' "$source_dir/README.md" >"$work/example.c"
grep -q 'PortOpen' "$work/example.c" || fail "no C example under ## Example in README.md"
# Whoever runs it sends nothing across the network.
grep -q 'u"NET,127\.0\.0\.1"' "$work/example.c" || fail "the example's port is not 127.0.0.1"

pc_file=$(find "$prefix" -name vorn.pc)
[ -n "$pc_file" ] || fail "vorn.pc not installed"
libdir=$(dirname "$(dirname "$pc_file")")

# Runs one build of the example; it may fail to reach a printer, nothing else.
run_example() {
  local program=$1 status=0
  LD_LIBRARY_PATH=$libdir "$program" >"$work/out" 2>"$work/err" || status=$?
  case $status in
    0) [ ! -s "$work/err" ] || fail "$program succeeded but wrote: $(cat "$work/err")" ;;
    1) grep -Eq '^-?[0-9]+: .+' "$work/err" || fail "$program: no result message: $(cat "$work/err")" ;;
    *) cat "$work/err"; fail "$program ended with status $status" ;;
  esac
  echo "$program: status $status $(cat "$work/err")"
}

# pkg-config, as the README says; its paths lead into the moved tree.
export PKG_CONFIG_PATH=$(dirname "$pc_file")
includedir=$(pkg-config --variable=includedir vorn)
[ "$(realpath "$includedir")" = "$(realpath "$prefix/include")" ] ||
  fail "pkg-config's includedir $includedir is not under $prefix"
# shellcheck disable=SC2046,SC2086
cc $extra_flags -o "$work/example_pc" "$work/example.c" $(pkg-config --cflags --libs vorn) ||
  fail "cc with pkg-config"
run_example "$work/example_pc"

# CMake's find_package.
mkdir "$work/consumer"
cp "$work/example.c" "$work/consumer/"
cat >"$work/consumer/CMakeLists.txt" <<'EOF'
cmake_minimum_required(VERSION 3.25)
project(example C)
find_package(vorn REQUIRED)
add_executable(example example.c)
target_link_libraries(example PRIVATE vorn::vorn)
EOF
cmake -S "$work/consumer" -B "$work/consumer/build" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_C_FLAGS="$extra_flags" >"$work/configure.log" 2>&1 ||
  { cat "$work/configure.log"; fail "find_package(vorn)"; }
cmake --build "$work/consumer/build" >"$work/build.log" 2>&1 ||
  { cat "$work/build.log"; fail "building against vorn::vorn"; }
run_example "$work/consumer/build/example"
