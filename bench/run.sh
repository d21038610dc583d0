#!/usr/bin/env bash
# Runs every benchmark of a build folder: ./bench/run.sh BUILD_DIR
set -euo pipefail
build=${1:?usage: bench/run.sh BUILD_DIR}
root=$(cd "$(dirname "$0")/.." && pwd)
inputs="$build/sse-inputs"
if [ -x "$build/bin/pipeline_bench" ]; then
  "$build/bin/pipeline_bench" --benchmark_min_time=2
fi
if [ -x "$build/bin/streams_bench" ]; then
  "$build/bin/streams_bench"
fi
if [ -x "$build/bin/sse_parser_bench" ]; then
  if [ ! -f "$inputs/manifest.json" ]; then
    python3 "$root/bench/sse/gen_inputs.py" --out "$inputs"
  fi
  VELORA_SSE_INPUTS="$inputs" "$build/bin/sse_parser_bench" --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
fi
if [ -x "$build/bin/record_decode_bench" ]; then
  "$build/bin/record_decode_bench" --benchmark_min_time=1
fi
if [ -x "$build/bin/map_view_bench" ] && command -v xvfb-run >/dev/null; then
  xvfb-run -a "$build/bin/map_view_bench"
fi
if [ -x "$build/bin/ticket_upload_bench" ]; then
  "$build/bin/ticket_upload_bench"
fi
# The full soak lasts ten minutes (VELORA_SOAK_SECONDS=600); here it runs for one unless asked.
if [ -x "$build/bin/stream_soak_bench" ]; then
  VELORA_SOAK_SECONDS="${VELORA_SOAK_SECONDS:-60}" "$build/bin/stream_soak_bench"
fi
