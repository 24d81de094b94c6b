#!/bin/sh
# Builds the three benchmarks and runs them one after the other; about a minute and a half
# on two cores once built. Results only: nothing here passes or fails on a timing.
# BUILD_DIR overrides the build directory (default: build/ at the top of the source tree).
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$root/build}

cmake -S "$root" -B "$build" -G Ninja -DVANTREL_BUILD_BENCHMARKS=ON >/dev/null
ninja -C "$build" bench_catalogue bench_startup bench_live_update

# Five repetitions each, shown as mean, median, standard deviation and spread.
reps="--benchmark_repetitions=5 --benchmark_display_aggregates_only=true"
"$build/bench/bench_catalogue" $reps --benchmark_min_time=0.5
"$build/bench/bench_startup" $reps --benchmark_min_time=1.5
"$build/bench/bench_live_update" $reps --benchmark_min_time=1
