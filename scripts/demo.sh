#!/usr/bin/env bash
# Builds the library, the host platform and the demo, then runs the demo:
#   bash scripts/demo.sh [picture.png]
# Previews of what each Surface's consumer received go to nuvra-demo-out/.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$(nproc)" --target nuvra_demo
HOST_LOG_ECHO=0 ./build/bin/nuvra_demo --out nuvra-demo-out "$@"
