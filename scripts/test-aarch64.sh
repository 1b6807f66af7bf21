#!/usr/bin/env bash
# Cross-builds the pixel kernels and their tests for arm64 (the NEON rows) and runs the tests
# under qemu-aarch64. Needs Debian's g++-aarch64-linux-gnu, qemu-user and libgtest-dev (whose
# GoogleTest sources are built for the target); scripts/setup.sh installs them.
#
#   scripts/test-aarch64.sh [build-dir]      (default: build-h3-arm64 in the repository)
set -euo pipefail

root="$(cd "$(dirname "$0")/.." && pwd)"
build="${1:-$root/build-h3-arm64}"
jobs="${JOBS:-2}"

for tool in aarch64-linux-gnu-g++ qemu-aarch64; do
    command -v "$tool" >/dev/null || { echo "test-aarch64: $tool not found (run scripts/setup.sh)" >&2; exit 1; }
done
[ -d /usr/src/googletest ] || { echo "test-aarch64: /usr/src/googletest missing (libgtest-dev)" >&2; exit 1; }

cmake -S "$root" -B "$build" \
    -DCMAKE_TOOLCHAIN_FILE="$root/cmake/aarch64-linux-gnu.cmake" \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DNUVRA_KERNELS_ONLY=ON
cmake --build "$build" -j"$jobs" --target kernel_tests

# ctest runs the binary through CMAKE_CROSSCOMPILING_EMULATOR (qemu-aarch64).
ctest --test-dir "$build" --output-on-failure -j"$jobs" --timeout 300
