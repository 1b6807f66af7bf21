#!/usr/bin/env bash
# Installs, from Debian's archive, whatever the build and the tests need and is not installed yet.
# Idempotent: does nothing (and needs no network) when everything is present.
set -euo pipefail

packages=(
    build-essential cmake pkg-config clang-format
    android-libutils-dev android-liblog-dev android-libcutils-dev
    android-platform-system-core-headers
    openjdk-17-jdk-headless
    libgtest-dev libgmock-dev libbenchmark-dev libyuv-dev libpng-dev
    opencl-headers ocl-icd-opencl-dev pocl-opencl-icd libjpeg62-turbo-dev
    g++-aarch64-linux-gnu qemu-user binutils
    clang libclang-rt-dev
)

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done

if [ ${#missing[@]} -gt 0 ]; then
    echo "setup: installing ${missing[*]}"
    sudo_cmd=()
    [ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
    "${sudo_cmd[@]}" apt-get update -qq
    DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends \
        "${missing[@]}"
fi
