#!/usr/bin/env bash
# What the desktop application costs its owner while nothing happens: corvane-desktop in a scratch
# home enrolled against the local coordinator, the generated model loaded and every hour of the
# week off in its schedule, under Xvfb on a private session bus with a tray host. First with only
# its tray icon, then with the dashboard open on the Settings page (whose data does not change).
# For each window of SECONDS: CPU as a share of one core, resident memory, and the paints it made
# (there should be none). Usage: desktop_idle_bench.sh BUILD_DIR [SECONDS=60]
set -euo pipefail
build="$(cd "$1" && pwd)"
seconds="${2:-60}"
desktop="$build/CorvaneApp/corvane-desktop"
corvane="$build/CorvaneApp/corvane"
watcher="$build/tests/ui/ui_sni_watcher"
coordinator="$build/tools/dev-coordinator/corvane-dev-coordinator"
model="$build/generated/whisper-test-model/ggml-large-v3-turbo-q5_0.bin"
for file in "$desktop" "$corvane" "$watcher" "$coordinator" "$model"; do
    [ -e "$file" ] || { echo "missing $file: build the tree with tests first" >&2; exit 2; }
done

work="$(mktemp -d)"
stop() {
    kill $(jobs -p) 2>/dev/null || true
    wait 2>/dev/null || true
    [ -n "${DBUS_SESSION_BUS_PID:-}" ] && kill "$DBUS_SESSION_BUS_PID" 2>/dev/null || true
    rm -rf "$work"
}
trap stop EXIT
export HOME="$work/home" XDG_CONFIG_HOME="$work/home/config" XDG_STATE_HOME="$work/home/state" \
  XDG_DATA_HOME="$work/home/data" XDG_CACHE_HOME="$work/home/cache" XDG_RUNTIME_DIR="$work"
mkdir -p "$XDG_CONFIG_HOME/Corvane"
echo '{"cvn.page": "settings"}' > "$XDG_CONFIG_HOME/Corvane/user-defaults.json"
unset WAYLAND_DISPLAY

# Enrolled, the model in place, and a schedule that never lets the worker run.
mkdir -p "$work/audio" "$HOME"
echo '[]' > "$work/jobs.json"
port=$((20000 + RANDOM % 20000))
"$coordinator" --port "$port" --audio-dir "$work/audio" --jobs "$work/jobs.json" > /dev/null 2>&1 &
sleep 1
echo token | "$corvane" enroll --coordinator "http://127.0.0.1:$port" --token-stdin > /dev/null
{ echo "schedule:"; echo "  weekly_grid:"
  for day in 1 2 3 4 5 6 7; do echo "    - [$(printf 'false, %.0s' $(seq 23))false]"; done
} >> "$HOME/.varnix-compute/config.yaml"
export CORVANE_MODEL_DIR="$work/models"
mkdir -p "$CORVANE_MODEL_DIR/whisper-cpp-swift--whisper-large-v3-turbo-q4--1"
cp "$model" "$CORVANE_MODEL_DIR/whisper-cpp-swift--whisper-large-v3-turbo-q4--1/"

exec 3< <(Xvfb -displayfd 1 -nolisten tcp 2>/dev/null)
read -r number <&3
export DISPLAY=":$number"
eval "$(dbus-launch --sh-syntax)"
"$watcher" > "$work/watcher.log" 2>&1 &
until grep -q ready "$work/watcher.log" 2>/dev/null; do sleep 0.2; done

CORVANE_PAINT_LOG=1 "$desktop" > "$work/app.log" 2>&1 &
app=$!
until grep -q item "$work/watcher.log" 2>/dev/null; do sleep 0.2; done
sleep 15  # start-up, the model load, the first samples and refreshes

cpu_seconds() { awk '{print ($14 + $15) / '"$(getconf CLK_TCK)"'}' "/proc/$app/stat"; }
rss_mb() { awk '/VmRSS/ {printf "%.1f", $2 / 1024}' "/proc/$app/status"; }
measure() {  # measure LABEL
    local paints_before cpu_before cpu_after paints
    paints_before=$(grep -c 'paint:' "$work/app.log" || true)
    cpu_before=$(cpu_seconds)
    sleep "$seconds"
    cpu_after=$(cpu_seconds)
    paints=$(( $(grep -c 'paint:' "$work/app.log" || true) - paints_before ))
    awk -v label="$1" -v a="$cpu_before" -v b="$cpu_after" -v s="$seconds" -v rss="$(rss_mb)" \
        -v paints="$paints" 'BEGIN {
          printf "%-26s CPU %.3f%% of a core   RSS %s MB   paints %d\n", label, (b - a) / s * 100, rss, paints }'
}
measure "tray only"
"$desktop" > /dev/null 2>&1  # a second start brings the dashboard forward
sleep 5
measure "dashboard on Settings"
echo "targets: CPU under 0.3% of a core, no paints while nothing changes"
