#!/usr/bin/env bash
# Builds the libFuzzer targets of fuzz/ in build-fuzz/ (clang, ASan+UBSan) and runs each for
# SECONDS (default 60), starting from its seeds and from what earlier runs kept. Exits non-zero
# when any target finds an input that breaks it; that input is saved under build-fuzz/findings/.
#
#   bash scripts/fuzz.sh [SECONDS] [TARGET...]     TARGET: poll_response, config_editors, ...
#   CORVANE_FUZZ_FLAGS="-runs=10000000" bash scripts/fuzz.sh 3600 runtime_state
#
# A finding is replayed with: build-fuzz/fuzz/fuzz_<target> <saved input>
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
bash "$ROOT/scripts/setup.sh" --tests

seconds="${1:-60}"
shift || true
targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
  targets=(poll_response claim_records account_records config_scanners config_editors runtime_state
           audio_decoding)
fi

build="$ROOT/build-fuzz"
cmake -S "$ROOT" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE= \
  -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DCORVANE_BUILD_FUZZ=ON \
  -DCORVANE_BUILD_TESTS=OFF -DCORVANE_BUILD_BENCH=OFF -DCORVANE_BUILD_UI=OFF >/dev/null
cmake --build "$build" --target $(printf 'fuzz_%s ' "${targets[@]}") -j"$(nproc)"

# Audio seeds are made here, like the decoder tests make theirs: short, so that a run is fast.
audio_seeds="$build/seeds/audio_decoding"
make_audio_seeds() {
  [ -f "$audio_seeds/.made" ] && return 0
  mkdir -p "$audio_seeds"
  local speech="$audio_seeds/speech.wav"
  espeak-ng -w "$speech" "Hello there."
  local tone=(-f lavfi -i "aevalsrc=0.5*sin(2*PI*440*t):c=stereo:s=44100:d=0.4")
  ff() { ffmpeg -nostdin -hide_banner -loglevel error -y "$@"; }
  ff -i "$speech" -ar 16000 -c:a pcm_s16le "$audio_seeds/speech-16k.wav"
  ff -i "$speech" -ar 16000 -c:a flac "$audio_seeds/speech.flac"
  ff -i "$speech" -ar 16000 -b:a 32k "$audio_seeds/speech.mp3"
  ff -i "$speech" -c:a libopus -b:a 16k "$audio_seeds/speech.ogg"
  ff -i "$speech" -ar 16000 -c:a aac -b:a 24k "$audio_seeds/speech.m4a"
  ff "${tone[@]}" -ar 8000 -c:a pcm_u8 "$audio_seeds/tone-u8-stereo.wav"
  ff "${tone[@]}" -ar 16000 -c:a pcm_f32le "$audio_seeds/tone-f32-stereo.wav"
  ff "${tone[@]}" -c:a libopus -b:a 16k "$audio_seeds/tone.webm"
  ff -f lavfi -i anullsrc=cl=stereo -t 0 -c:a pcm_s16le "$audio_seeds/header-only.wav"
  touch "$audio_seeds/.made"
}

seeds_of() {
  case "$1" in
    config_scanners | config_editors) echo "$ROOT/tests/config/corpus" ;;
    audio_decoding) make_audio_seeds && echo "$audio_seeds" ;;
    *) echo "$ROOT/fuzz/seeds/$1" ;;
  esac
}
dictionary_of() {
  case "$1" in
    poll_response | claim_records | account_records) echo "$ROOT/fuzz/dictionaries/coordinator.dict" ;;
    config_scanners | config_editors) echo "$ROOT/fuzz/dictionaries/config.dict" ;;
    runtime_state) echo "$ROOT/fuzz/dictionaries/runtime_state.dict" ;;
    audio_decoding) echo "$ROOT/fuzz/dictionaries/audio.dict" ;;
  esac
}

export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
failed=()
for target in "${targets[@]}"; do
  corpus="$build/corpus/$target"
  findings="$build/findings/$target"
  log="$build/logs/$target.log"
  mkdir -p "$corpus" "$findings" "$(dirname "$log")"
  max_len=()
  [ "$target" = audio_decoding ] && max_len=(-max_len=65536)
  status=0
  # shellcheck disable=SC2086  # CORVANE_FUZZ_FLAGS is a list of flags
  "$build/fuzz/fuzz_$target" -max_total_time="$seconds" -timeout=30 -rss_limit_mb=2048 \
    -print_final_stats=1 -dict="$(dictionary_of "$target")" -artifact_prefix="$findings/" \
    "${max_len[@]}" ${CORVANE_FUZZ_FLAGS:-} "$corpus" "$(seeds_of "$target")" >"$log" 2>&1 || status=$?
  runs="$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)"
  rate="$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -1)"
  if [ "$status" -ne 0 ]; then
    failed+=("$target")
    echo "fuzz_$target: FINDING after ${runs:-?} runs (log: $log)" >&2
    grep -E '^(\*\*\* invariant broken|==[0-9]+==ERROR|SUMMARY|.*runtime error)' "$log" | head -5 >&2 || true
    grep -E 'Test unit written to' "$log" | sed 's/^/  /' >&2 || true
  else
    echo "fuzz_$target: ${runs:-?} runs, ${rate:-?}/s, corpus $(ls "$corpus" | wc -l) inputs, no finding"
  fi
done
if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzzing found inputs that break: ${failed[*]}" >&2
  exit 1
fi
