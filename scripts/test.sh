#!/usr/bin/env bash
# Builds and runs every test: the default (Qualcomm) build with the K.ORB and MT library variants,
# the same under AddressSanitizer + UndefinedBehaviorSanitizer, and the arm64 kernels under
# qemu-aarch64. Installs what is missing first.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup.sh

jobs=${NUVRA_JOBS:-$(nproc)}
export HOST_LOG_ECHO=${HOST_LOG_ECHO:-0}

run_config() {
    local dir=$1
    shift
    cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
    cmake --build "$dir" -j"$jobs"
    (cd "$dir" && ctest --output-on-failure -j"$jobs")
}

echo "== default build"
run_config build -DNUVRA_BUILD_BENCH=ON
echo "== sanitizer build (ASan + UBSan)"
run_config build-asan -DNUVRA_SANITIZE=ON -DNUVRA_BUILD_BENCH=OFF
if [ -f scripts/test-aarch64.sh ]; then
    echo "== arm64 kernels under qemu-aarch64"
    bash scripts/test-aarch64.sh
fi
echo "== all test configurations passed"
