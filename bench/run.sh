#!/bin/sh
# Builds the benchmarks and runs them one after the other; about five minutes on two cores
# once built. Results only: nothing here passes or fails on a timing.
# BUILD_DIR overrides the build directory (default: build/ at the top of the source tree).
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$root/build}

cmake -S "$root" -B "$build" -G Ninja -DVANTREL_BUILD_BENCHMARKS=ON >/dev/null
ninja -C "$build" bench_catalogue bench_startup bench_live_update bench_scroll bench_search bench_open_row bench_delete bench_playback bench_zip

# Five repetitions each, shown as mean, median, standard deviation and spread.
reps="--benchmark_repetitions=5 --benchmark_display_aggregates_only=true"
"$build/bench/bench_catalogue" $reps --benchmark_min_time=0.5
# On a bus of its own, where it also starts the desktop's address book for its second case.
dbus-run-session -- "$build/bench/bench_startup" $reps --benchmark_min_time=1.5
"$build/bench/bench_live_update" $reps --benchmark_min_time=1
# These fix their own number of runs (each fling, each opening row, each deletion over fresh
# directories, takes real time to play out), so three repetitions are enough to show the spread.
few="--benchmark_repetitions=3 --benchmark_display_aggregates_only=true"
"$build/bench/bench_scroll" $few
"$build/bench/bench_search" $few
"$build/bench/bench_open_row" $few
"$build/bench/bench_delete" $few
"$build/bench/bench_playback" $few
"$build/bench/bench_zip" $few
