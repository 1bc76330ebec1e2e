#!/usr/bin/env bash
# Soaks the model-checked random runs: builds model_soak when needed, then runs
# it under both settings of the interface-table toggle in turn until the time
# is up. Prints the runs done and, for a failing seed, its shortest failing
# prefix of ops with the line that replays it.
#
#   tools/soak.sh [SECONDS]                   soak (default 600 seconds)
#   tools/soak.sh --seed S [--toggle on|off] [--ops N] [--only I,J,...] [--dump]
#                                             replay one seed op by op
#
# BUILD_DIR (default build) is the build directory; MODEL_OPS the ops per run.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${BUILD_DIR:-$root/build}"
case "$build" in /*) ;; *) build="$root/$build" ;; esac

cmake -S "$root" -B "$build" -DL3TUNNEL_BENCH=OFF >/dev/null
cmake --build "$build" --target model_soak -j2 >/dev/null
soak="$build/tests/Model/model_soak"

toggles="$(mktemp -d)"
trap 'rm -rf "$toggles"' EXIT
printf '{"CommonIifOifIndex": false}\n' >"$toggles/MeridL3.json"
# The toggle's directory for a setting: none gives the default, on.
toggleDir() { if [ "$1" = off ]; then echo "$toggles"; fi; }

if [ "${1:-}" = --seed ]; then
   setting=on
   args=()
   while [ $# -gt 0 ]; do
      case "$1" in
         --toggle) setting="$2"; shift 2 ;;
         *) args+=("$1"); shift ;;
      esac
   done
   L3TUNNEL_TOGGLE_DIR="$(toggleDir "$setting")" exec "$soak" --ops "${MODEL_OPS:-120}" "${args[@]}"
fi

total="${1:-600}"
case "$total" in '' | *[!0-9]*) echo "usage: tools/soak.sh [SECONDS] | --seed S ..." >&2; exit 2 ;; esac
end=$((SECONDS + total))
slice=30
setting=on
runs=0
while [ "$SECONDS" -lt "$end" ]; do
   left=$((end - SECONDS))
   [ "$left" -lt "$slice" ] && now="$left" || now="$slice"
   first=$(( (RANDOM << 15 | RANDOM) ))
   if ! out="$(L3TUNNEL_TOGGLE_DIR="$(toggleDir "$setting")" \
      "$soak" --seconds "$now" --first-seed "$first" --ops "${MODEL_OPS:-120}")"; then
      printf '%s\n' "$out"
      echo "soak: a run failed with the toggle $setting after $runs runs; replay it with" \
         "tools/soak.sh --seed SEED --toggle $setting (see above)" >&2
      exit 1
   fi
   done="$(printf '%s\n' "$out" | sed -n 's/^runs: \([0-9]*\).*/\1/p')"
   runs=$((runs + ${done:-0}))
   printf 'toggle %s: %s\n' "$setting" "$(printf '%s\n' "$out" | tail -n 1)"
   [ "$setting" = on ] && setting=off || setting=on
done
echo "soak: $runs runs held in $total seconds"
