#!/usr/bin/env bash
# Configures (once) and builds everything into build/.
# With --sanitize: the same code with AddressSanitizer and UndefinedBehaviorSanitizer, without
# the benchmarks, into build-sanitize/.
set -euo pipefail
cd "$(dirname "$0")/.."
dir=build
options=(-DCMAKE_BUILD_TYPE=RelWithDebInfo)
if [[ ${1:-} == --sanitize ]]; then
    dir=build-sanitize
    options+=(-DVANTREL_SANITIZE=ON -DVANTREL_BUILD_BENCHMARKS=OFF)
fi
if [[ ! -f $dir/build.ninja ]]; then
    cmake -S . -B "$dir" -G Ninja "${options[@]}"
fi
cmake --build "$dir" --parallel "$(nproc)"
