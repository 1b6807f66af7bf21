#!/usr/bin/env bash
# Builds and runs every test: the default (Qualcomm) build with the K.ORB and MT library variants,
# the same under AddressSanitizer + UndefinedBehaviorSanitizer, the arm64 kernels under
# qemu-aarch64, the concurrency tests under ThreadSanitizer, and every libFuzzer target (fuzz/)
# for a bounded time. Installs what is missing first.
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
echo "== concurrency under ThreadSanitizer (the tests that run without the JVM)"
# The JVM does not run under ThreadSanitizer: this configuration builds and runs only the
# concurrency tests. The races the library accepts are suppressed with their reasons in
# tests/support/tsan.supp. PoCL and its compiler are not instrumented; a report that their
# threads' hand-offs rarely provoke is retried once rather than failing the run.
cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DNUVRA_TSAN=ON \
    -DNUVRA_BUILD_BENCH=OFF >/dev/null
cmake --build build-tsan --target concurrency_tests -j"$jobs"
(cd build-tsan && ctest -R '^(ConcurrencyTest|GpuConcurrencyTest)\.' --output-on-failure \
    --repeat until-pass:2)
echo "== fuzz targets (clang, libFuzzer with ASan + UBSan)"
# A clang build of the fuzz targets alone; each runs for NUVRA_FUZZ_SECONDS on the corpus it has
# grown in earlier runs. Crash inputs are written into build-fuzz/.
CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DNUVRA_BUILD_FUZZ=ON >/dev/null
cmake --build build-fuzz --target nuvra_fuzzers -j"$jobs"
for target in build-fuzz/bin/fuzz_*; do
    name="$(basename "$target")"
    mkdir -p "build-fuzz/corpus/$name"
    if ! "$target" -max_total_time="${NUVRA_FUZZ_SECONDS:-20}" -artifact_prefix=build-fuzz/ \
        "build-fuzz/corpus/$name" >"build-fuzz/$name.log" 2>&1; then
        tail -n 60 "build-fuzz/$name.log"
        echo "fuzz: $name failed (input saved in build-fuzz/)" >&2
        exit 1
    fi
    echo "$name: $(grep -E '^Done' "build-fuzz/$name.log")"
done
echo "== all test configurations passed"
